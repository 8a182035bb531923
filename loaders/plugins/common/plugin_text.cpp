#include "loaders/plugins/common/plugin_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace quill_plugin {

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

bool is_windows_absolute(const std::string& path) {
    if (!path.empty() && path[0] == '\\') return true;
    const bool letter = path.size() >= 3 &&
                        ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
    return letter && path[1] == ':' && (path[2] == '\\' || path[2] == '/');
}

}  // namespace quill_plugin
