#include "veldan/base/strings.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "veldan/base/atomic_file.h"

namespace veldan {

namespace {

// Copies text (which may lie inside dst) to dst and terminates it.
int put(char* dst, std::string_view text) {
    if (!text.empty()) std::memmove(dst, text.data(), text.size());
    dst[text.size()] = '\0';
    return int(text.size());
}

std::string_view trimmed_left(std::string_view text) {
    size_t begin = 0;
    while (begin < text.size() && is_space(text[begin])) ++begin;
    return text.substr(begin);
}

std::string_view trimmed_right(std::string_view text) {
    size_t end = text.size();
    while (end > 0 && is_space(text[end - 1])) --end;
    return text.substr(0, end);
}

// The 0-based offset of a 1-based position; positions below 1 count as 1.
size_t offset_of(int position) { return position < 1 ? 0 : size_t(position) - 1; }

// The offset of the last "." of path's file name, or npos when the file name has none.
size_t file_name_dot(const std::string& path) {
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return std::string::npos;
    }
    return dot;
}

size_t file_name_offset(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? 0 : slash + 1;
}

// The number of leading one bits of a byte.
int leading_ones(uint8_t byte) {
    int count = 0;
    while (count < 8 && (byte & (0x80 >> count))) ++count;
    return count;
}

bool is_continuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

char upper(char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; }

}  // namespace

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

std::string_view trimmed(std::string_view text) { return trimmed_right(trimmed_left(text)); }

std::string upper_ascii(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), upper);
    return out;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](char x, char y) { return upper(x) == upper(y); });
}

int trimleft(char* dst, const char* src) { return put(dst, trimmed_left(src)); }

int trimright(char* dst, const char* src) { return put(dst, trimmed_right(src)); }

int trim(char* dst, const char* src) { return put(dst, trimmed(src)); }

int mid(char* dst, const char* src, int start, int len) {
    std::string_view text(src);
    size_t offset = offset_of(start);
    if (len < 0 || offset >= text.size()) return put(dst, {});
    return put(dst, text.substr(offset, len == 0 ? std::string_view::npos : size_t(len)));
}

int instr(const char* s, const char* sub, int start) {
    std::string_view text(s);
    size_t offset = offset_of(start);
    if (offset > text.size()) return 0;
    size_t found = text.find(sub, offset);
    return found == std::string_view::npos ? 0 : int(found) + 1;
}

int repstr(char* dst, const char* src, const char* from, const char* to, int start) {
    std::string_view text(src);
    std::string_view pattern(from);
    size_t offset = offset_of(start);
    if (pattern.empty() || offset > text.size()) return 0;
    size_t found = text.find(pattern, offset);
    if (found == std::string_view::npos) return 0;
    std::string result(text.substr(0, found));
    result += to;
    result += text.substr(found + pattern.size());
    put(dst, result);
    return int(pattern.size());
}

char* reext(const char* src, const char* ext, char* dst) {
    std::string_view text(src);
    size_t dot = text.rfind('.');
    size_t kept = dot == std::string_view::npos ? text.size() : dot;
    std::memmove(dst, src, kept);
    dst[kept] = '.';
    std::strcpy(dst + kept + 1, ext);
    return dst;
}

std::string add_ext(const std::string& path, const std::string& ext) {
    if (file_name_dot(path) != std::string::npos) return path;
    return path + "." + ext;
}

std::string reext(const std::string& path, const std::string& ext) {
    size_t dot = file_name_dot(path);
    if (dot == std::string::npos) return path + "." + ext;
    return path.substr(0, dot + 1) + ext;
}

std::string extract_file_name(const std::string& path) {
    return path.substr(file_name_offset(path));
}

std::string extract_file_body(const std::string& path) {
    size_t begin = file_name_offset(path);
    size_t dot = file_name_dot(path);
    return path.substr(begin, dot == std::string::npos ? std::string::npos : dot - begin);
}

std::string extract_file_path(const std::string& path) {
    return path.substr(0, file_name_offset(path));
}

TCrType detect_cr_type(const char* text) {
    if (!text) return kCrTypeLF;
    size_t lineFeeds = 0;
    size_t returns = 0;
    for (const char* c = text; *c; ++c) {
        if (*c == '\n') ++lineFeeds;
        if (*c == '\r') ++returns;
    }
    if (lineFeeds == returns && lineFeeds != 0) return kCrTypeCRLF;
    if (returns > lineFeeds) return kCrTypeCR;
    return kCrTypeLF;
}

TCharsetConversion detect_charset(const char* text) {
    if (!text) return kUnicodeConversion;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text);
    size_t length = std::strlen(text);
    size_t escapes = 0;
    size_t bad = 0;
    size_t i = 0;
    while (i < length) {
        uint8_t lead = bytes[i];
        int ones = leading_ones(lead);
        if (ones == 0) {
            if (lead == 0x1B) ++escapes;
            ++i;
        } else if (ones == 1) {
            ++bad;
            ++i;
        } else {
            ++i;
            for (int k = 1; k < ones; ++k, ++i) {
                // A sequence cut short by the end of the text is malformed too.
                if (i >= length) {
                    ++bad;
                    break;
                }
                if (!is_continuation(bytes[i])) ++bad;
            }
        }
    }
    if (escapes > 0) return kJISConversion;
    return bad > 0 ? kSJISConversion : kUnicodeConversion;
}

bool is_char_begin_byte(char c) {
    auto byte = uint8_t(c);
    return byte < 0x80 || (byte & 0xC0) == 0xC0;
}

bool copy_file(const char* src, const char* dst) {
    if (!src || !dst || !*src || !*dst) return false;
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path target(dst);
    if (fs::is_directory(target, error)) target /= fs::path(src).filename();
    return copy_file_atomically(src, target) == 0;
}

}  // namespace veldan
