// The raw text-list loader: a ".txt" or ".lst" file of one path per line, in the notation
// of this system or of Windows, whose first non-blank line looks like an absolute path.

#include <new>

#include "loaders/container_loader.h"
#include "loaders/plugins/common/plugin_text.h"

namespace {

const std::vector<std::string> kExtensions = {"txt", "lst"};

bool first_line_is_path(const std::string& text) {
    for (const std::string& raw : quill_plugin::text_lines(text)) {
        const std::string line = quill_plugin::trimmed(raw);
        if (line.empty()) continue;
        return line[0] == '/' || quill_plugin::is_windows_absolute(line);
    }
    return false;
}

class TTextListLoader : public TContainerLoader {
  public:
    using TContainerLoader::TContainerLoader;

    bool IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept override {
        std::string text;
        if (!quill_plugin::has_extension(path, kExtensions) ||
            !quill_plugin::read_capped_file(path, quill_plugin::kMaxFileBytes, &text) ||
            !first_line_is_path(text))
            return false;
        *kind = kFmtRawList;
        return true;
    }

    int32_t Load(const std::string& path, std::vector<TContainerEntry>* entries) noexcept override {
        std::string text;
        if (!quill_plugin::read_capped_file(path, quill_plugin::kMaxFileBytes, &text)) return -1;
        for (const std::string& raw : quill_plugin::text_lines(text)) {
            const std::string line = quill_plugin::trimmed(raw);
            if (!line.empty()) entries->push_back({line, false});
        }
        return 0;
    }

    std::string Name() const noexcept override { return "Container Loader Text List"; }
    std::string Version() const noexcept override { return "Ver 1.00"; }
    std::string Copyright() const noexcept override {
        return "Copyright (C) the Quill MIDI developers";
    }
    std::string Description() const noexcept override {
        return "Tells MIDI files in plain text lists of one path per line.";
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) TContainerLoader* make_container_loader(
    const char* pluginPath) noexcept {
    return new (std::nothrow) TTextListLoader(pluginPath ? pluginPath : "");
}
