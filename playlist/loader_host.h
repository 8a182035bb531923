#pragma once
// The loader list of a playlist view: the built-in native loader first, then the plug-ins
// of a "Loader" folder in the order the folder lists them.
//
// Plug-in images are loaded with dlopen and never closed once a loader of theirs has been
// accepted: a loader's code and virtual table live in its image, and a rebuilt list simply
// opens them again (dlopen counts the references). See loaders/container_loader.h for the
// plug-in contract; plug-ins are trusted code.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "loaders/container_loader.h"

using TLoaderList = std::vector<std::unique_ptr<TContainerLoader>>;

// Appends the built-in loader and every accepted plug-in of folder. A file that is no
// shared object, lacks the entry point, returns null or reports another interface version
// is skipped without a message. A folder that can't be read gives the built-in loader only.
void load_container_loader(TLoaderList* loaders, const std::filesystem::path& folder);

// Deletes every loader and empties the list; the images stay loaded.
void unload_container_loader(TLoaderList* loaders);

// True when the file loads as a shared object exporting the entry point; the image is
// closed again at once.
bool is_container_loader(const std::filesystem::path& file);

// The first loader of the list that reads the file, its kind in *kind; null when none.
TContainerLoader* find_container_loader(const TLoaderList& loaders, const std::string& path,
                                        TSupportFmt* kind);

// "Loader" beside the executable.
std::filesystem::path default_loader_folder();
