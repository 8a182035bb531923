#include "loaders/plugins/m3u/m3u_parse.h"

#include <filesystem>

#include "loaders/plugins/common/plugin_text.h"
#include "veldan/base/text_encoding.h"

namespace {

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string percent_decoded(const std::string& text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); i++) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hex_value(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_value(text[i + 2]) : -1;
        if (low >= 0) {
            decoded += char(high * 16 + low);
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

// The path a line names; empty for a URL that is no local file.
std::string path_of(const std::string& line, const std::string& folder) {
    static const std::string kFileScheme = "file://";
    if (line.compare(0, kFileScheme.size(), kFileScheme) == 0) {
        // "file:///music/a.mid", or with a host name before the path: "file://host/music".
        const std::string rest = line.substr(kFileScheme.size());
        const size_t slash = rest.find('/');
        return slash == std::string::npos ? std::string() : percent_decoded(rest.substr(slash));
    }
    if (line.find("://") != std::string::npos) return std::string();
    if (line[0] == '/' || quill_plugin::is_windows_absolute(line)) return line;
    std::string relative = line;
    for (char& c : relative) {
        if (c == '\\') c = '/';
    }
    return (std::filesystem::path(folder) / relative).lexically_normal().string();
}

}  // namespace

std::vector<TContainerEntry> parse_m3u(const std::string& text, const std::string& folder,
                                       bool utf8Only) {
    std::vector<TContainerEntry> entries;
    for (const std::string& raw : quill_plugin::text_lines(text)) {
        const std::string line = quill_plugin::trimmed(raw);
        if (line.empty() || line[0] == '#') continue;
        const std::string path = path_of(utf8Only ? line : veldan::to_utf8(line), folder);
        if (!path.empty()) entries.push_back({path, false});
    }
    return entries;
}
