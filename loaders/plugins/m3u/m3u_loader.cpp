// The M3U loader: ".m3u" and ".m3u8" playlists, and any file that starts with "#EXTM3U".

#include <filesystem>
#include <new>

#include "loaders/container_loader.h"
#include "loaders/plugins/common/plugin_text.h"
#include "loaders/plugins/m3u/m3u_parse.h"

namespace {

bool starts_with_extm3u(const std::string& path) {
    const std::string text = quill_plugin::read_head(path, 16);
    const size_t start = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    return text.compare(start, 7, "#EXTM3U") == 0;
}

class TM3ULoader : public TContainerLoader {
  public:
    using TContainerLoader::TContainerLoader;

    bool IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept override {
        if (!quill_plugin::is_regular_file(path)) return false;
        if (!quill_plugin::has_extension(path, {"m3u", "m3u8"}) && !starts_with_extm3u(path))
            return false;
        *kind = kFmtGeneralList;
        return true;
    }

    int32_t Load(const std::string& path, std::vector<TContainerEntry>* entries) noexcept override {
        std::string text;
        if (!quill_plugin::read_capped_file(path, quill_plugin::kMaxFileBytes, &text)) return -1;
        const std::string folder = std::filesystem::path(path).parent_path().string();
        const bool utf8Only = quill_plugin::has_extension(path, {"m3u8"});
        for (TContainerEntry& entry : parse_m3u(text, folder, utf8Only)) {
            entries->push_back(std::move(entry));
        }
        return 0;
    }

    std::string Name() const noexcept override { return "Container Loader M3U"; }
    std::string Version() const noexcept override { return "Ver 1.00"; }
    std::string Copyright() const noexcept override {
        return "Copyright (C) the Quill MIDI developers";
    }
    std::string Description() const noexcept override {
        return "Tells MIDI files in M3U and M3U8 playlists.";
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) TContainerLoader* make_container_loader(
    const char* pluginPath) noexcept {
    return new (std::nothrow) TM3ULoader(pluginPath ? pluginPath : "");
}
