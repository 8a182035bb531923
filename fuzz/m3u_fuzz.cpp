// Parses arbitrary bytes as an M3U playlist; the first byte chooses M3U8 (UTF-8 only).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "loaders/plugins/common/plugin_text.h"
#include "loaders/plugins/m3u/m3u_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool utf8Only = data[0] & 1;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::string folder = "/music/lists";
    for (const TContainerEntry& entry : parse_m3u(text, folder, utf8Only)) {
        // A line gives a non-empty path no longer than the line (twice, for Latin-1 bytes
        // that became two) under the folder.
        const size_t longest = folder.size() + 1 + 2 * quill_plugin::kMaxLineBytes;
        if (entry.path.empty() || entry.path.size() > longest || entry.isContainer) std::abort();
    }
    return 0;
}
