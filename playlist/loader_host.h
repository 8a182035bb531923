#pragma once
// The loader list of a playlist view: the built-in native loader first, then the plug-ins
// of a "Loader" folder in the order the folder lists them.
//
// Each plug-in is opened from a private copy of its file made at load time (a memory
// file), so that a rebuilt list sees a plug-in replaced on disk (dlopen would hand back
// the image it holds under the same name), and writing over the file in place can't change
// the code of an image in use. An image is closed as soon as its loader is deleted, not
// kept for the program's life: every rebuild loads the folder afresh. A file that does not
// hold all of its segments yet (still being copied in) is skipped, to be read on its next
// change. Limits: a plug-in that finds libraries beside itself through $ORIGIN does not
// find them from its copy. See loaders/container_loader.h for the plug-in contract;
// plug-ins are trusted code.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "loaders/container_loader.h"

class TPluginImage;

// Deletes a loader, then lets go of the plug-in image its code lives in (none for the
// built-in loader).
struct TLoaderRelease {
    std::shared_ptr<TPluginImage> image;
    void operator()(TContainerLoader* loader) noexcept;
};
using TLoaderPtr = std::unique_ptr<TContainerLoader, TLoaderRelease>;
using TLoaderList = std::vector<TLoaderPtr>;

// Appends the built-in loader and every accepted plug-in of folder. A file that is no
// shared object, lacks the entry point, returns null or reports another interface version
// is skipped without a message. A folder that can't be read gives the built-in loader only.
void load_container_loader(TLoaderList* loaders, const std::filesystem::path& folder);

// Deletes every loader, closes their images and empties the list.
void unload_container_loader(TLoaderList* loaders);

// True when the file loads as a shared object exporting the entry point; the image (of a
// copy, as above) is closed again at once.
bool is_container_loader(const std::filesystem::path& file);

// The first loader of the list that reads the file, its kind in *kind; null when none.
TContainerLoader* find_container_loader(const TLoaderList& loaders, const std::string& path,
                                        TSupportFmt* kind);

// "Loader" beside the executable.
std::filesystem::path default_loader_folder();
