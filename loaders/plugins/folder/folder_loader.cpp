// The folder loader: a folder becomes a list of its files in name order (byte order), its
// subfolders nested lists. Hidden entries (names starting with ".") are left out.

#include <algorithm>
#include <filesystem>
#include <new>
#include <system_error>

#include "loaders/container_loader.h"

namespace {

class TFolderLoader : public TContainerLoader {
  public:
    using TContainerLoader::TContainerLoader;

    bool IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept override {
        std::error_code error;
        if (!std::filesystem::is_directory(path, error)) return false;
        *kind = kFmtFolderList;
        return true;
    }

    int32_t Load(const std::string& path, std::vector<TContainerEntry>* entries) noexcept override {
        std::error_code error;
        std::filesystem::directory_iterator folder(path, error);
        if (error) return -1;
        std::vector<TContainerEntry> found;
        for (auto entry = std::filesystem::begin(folder);
             !error && entry != std::filesystem::end(folder); entry.increment(error)) {
            const std::string name = entry->path().filename().string();
            if (name.empty() || name[0] == '.') continue;
            std::error_code typeError;
            found.push_back({entry->path().string(), entry->is_directory(typeError)});
        }
        std::sort(
            found.begin(), found.end(),
            [](const TContainerEntry& a, const TContainerEntry& b) { return a.path < b.path; });
        entries->insert(entries->end(), found.begin(), found.end());
        return 0;
    }

    std::string Name() const noexcept override { return "Container Loader Folder"; }
    std::string Version() const noexcept override { return "Ver 1.00"; }
    std::string Copyright() const noexcept override {
        return "Copyright (C) the Quill MIDI developers";
    }
    std::string Description() const noexcept override {
        return "Tells the files of a folder in name order; subfolders become nested lists.";
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) TContainerLoader* make_container_loader(
    const char* pluginPath) noexcept {
    return new (std::nothrow) TFolderLoader(pluginPath ? pluginPath : "");
}
