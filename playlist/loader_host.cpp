#include "playlist/loader_host.h"

#include <dlfcn.h>

#include <system_error>

#include "playlist/native_loader.h"
#include "veldan/core/entry.h"

namespace {

TMakeContainerLoader entry_point(void* image) {
    // dlsym hands out an object pointer; POSIX guarantees it converts to a function pointer.
    return reinterpret_cast<TMakeContainerLoader>(dlsym(image, kMakeContainerLoaderSymbol));
}

// The plug-in's loader when it is acceptable; its image stays open then, and only then.
std::unique_ptr<TContainerLoader> open_plugin(const std::filesystem::path& file) {
    void* image = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!image) return nullptr;
    TMakeContainerLoader make = entry_point(image);
    std::unique_ptr<TContainerLoader> loader(make ? make(file.c_str()) : nullptr);
    if (loader && loader->SpecificationNumber() == kContainerLoaderInterface) return loader;
    loader.reset();  // its destructor lives in the image
    dlclose(image);
    return nullptr;
}

}  // namespace

void load_container_loader(TLoaderList* loaders, const std::filesystem::path& folder) {
    loaders->push_back(std::make_unique<TCLNative100>());
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    if (error) return;
    for (const std::filesystem::directory_entry& entry : entries) {
        if (!entry.is_regular_file(error)) continue;  // follows links
        if (auto loader = open_plugin(entry.path())) loaders->push_back(std::move(loader));
    }
}

void unload_container_loader(TLoaderList* loaders) { loaders->clear(); }

bool is_container_loader(const std::filesystem::path& file) {
    void* image = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!image) return false;
    const bool found = entry_point(image) != nullptr;
    dlclose(image);
    return found;
}

TContainerLoader* find_container_loader(const TLoaderList& loaders, const std::string& path,
                                        TSupportFmt* kind) {
    for (const auto& loader : loaders) {
        if (loader->IsLoadable(path, kind)) return loader.get();
    }
    return nullptr;
}

std::filesystem::path default_loader_folder() { return veldan::app_dir() / "Loader"; }
