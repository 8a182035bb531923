#include "loaders/plugins/common/plugin_text.h"

#include <fcntl.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace quill_plugin {

namespace {

bool is_continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

bool has_half_width_katakana(const std::string& utf8) {
    // U+FF61..U+FF9F: EF BD A1..BF and EF BE 80..9F.
    for (size_t i = 0; i + 2 < utf8.size(); i++) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const auto second = static_cast<unsigned char>(utf8[i + 1]);
        const auto third = static_cast<unsigned char>(utf8[i + 2]);
        if (lead == 0xEF &&
            ((second == 0xBD && third >= 0xA1) || (second == 0xBE && third <= 0x9F)))
            return true;
    }
    return false;
}

}  // namespace

bool strict_sjis_to_utf8(const std::string& sjis, std::string* utf8) {
    iconv_t converter = iconv_open("UTF-8", "CP932");
    if (converter == iconv_t(-1)) return false;
    std::string out(sjis.size() * 3 + 4, '\0');
    char* in = const_cast<char*>(sjis.data());
    size_t inLeft = sjis.size();
    char* next = out.data();
    size_t outLeft = out.size();
    const bool converted = iconv(converter, &in, &inLeft, &next, &outLeft) != size_t(-1);
    iconv_close(converter);
    if (!converted) return false;
    out.resize(out.size() - outLeft);
    *utf8 = std::move(out);
    return true;
}

std::string latin1_to_utf8(const std::string& latin1) {
    std::string utf8;
    utf8.reserve(latin1.size() * 2);
    for (char c : latin1) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += char(0xC0 | (byte >> 6));
            utf8 += char(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

bool is_regular_file(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool read_capped_file(const std::string& path, size_t maxBytes, std::string* text) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info {};
    bool ok = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && size_t(info.st_size) <= maxBytes;
    text->clear();
    char buffer[64 * 1024];
    while (ok) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            ok = got == 0;
            break;
        }
        // The file may grow while it is read.
        if (text->size() + size_t(got) > maxBytes) ok = false;
        text->append(buffer, size_t(got));
    }
    ::close(fd);
    return ok;
}

std::string read_head(const std::string& path, size_t bytes) {
    std::string head;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return head;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
        head.resize(bytes);
        ssize_t got;
        do {
            got = ::read(fd, head.data(), bytes);
        } while (got < 0 && errno == EINTR);
        head.resize(got > 0 ? size_t(got) : 0);
    }
    ::close(fd);
    return head;
}

std::vector<std::string> text_lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        size_t length = end - start;
        if (length > 0 && text[end - 1] == '\r') length--;
        if (length <= kMaxLineBytes) lines.push_back(text.substr(start, length));
        start = end + 1;
    }
    return lines;
}

bool has_extension(const std::string& path, const std::vector<std::string>& exts) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    for (const std::string& wanted : exts) {
        if (ext == wanted) return true;
    }
    return false;
}

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r\n\f\v";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool is_valid_utf8(const std::string& text) {
    size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        size_t length = 1;
        uint32_t code = byte;
        if (byte >= 0xF0 && byte <= 0xF4) {
            length = 4;
            code = byte & 0x07;
        } else if (byte >= 0xE0) {
            length = byte <= 0xEF ? 3 : 0;
            code = byte & 0x0F;
        } else if (byte >= 0xC2) {
            length = 2;
            code = byte & 0x1F;
        } else if (byte >= 0x80) {
            length = 0;
        }
        if (length == 0 || i + length > text.size()) return false;
        for (size_t k = 1; k < length; k++) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if (!is_continuation(next)) return false;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF.
        if ((length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10FFFF)) ||
            (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

std::string to_utf8(const std::string& line) {
    if (is_valid_utf8(line)) return line;
    std::string utf8;
    if (strict_sjis_to_utf8(line, &utf8) && !has_half_width_katakana(utf8)) return utf8;
    return latin1_to_utf8(line);
}

bool is_windows_absolute(const std::string& path) {
    if (!path.empty() && path[0] == '\\') return true;
    const bool letter = path.size() >= 3 &&
                        ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
    return letter && path[1] == ':' && (path[2] == '\\' || path[2] == '/');
}

}  // namespace quill_plugin
