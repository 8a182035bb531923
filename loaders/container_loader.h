#pragma once
// TContainerLoader: the interface of a container loader, a reader of files that name other
// files (playlists, folders). Loaders are built into the player or come as plug-ins.
//
// A plug-in is a shared object (".so") in the "Loader" folder beside the player's
// executable. It exports, with C linkage,
//
//     TContainerLoader* make_container_loader(const char* pluginPath);
//
// which returns a new loader (the player owns it and deletes it through the virtual
// destructor) or null. The player asks SpecificationNumber first and ignores, deletes and
// forgets every loader that reports another number than kContainerLoaderInterface.
//
// Plug-ins are trusted code: they run inside the player's process with the user's rights,
// and a crash or a hang in a plug-in is a crash or a hang of the player. Install only
// plug-ins you would run as programs.
//
// Only plain C++ types cross this boundary, so a plug-in needs this header and the C++
// standard library, nothing else; it must be built with the same compiler family and
// standard library as the player. No exception may leave a plug-in: every operation is
// noexcept, and failures are reported by return values.

#include <cstdint>
#include <string>
#include <vector>

// The kind of a playlist row. A loader reports one of the container kinds.
enum TSupportFmt : int32_t {
    kFmtSong = 1000,
    kFmtGeneralList = 2000,
    kFmtFolderList = 2001,
    kFmtRawList = 2002,
    kFmtSemiRawList = 2003,  // a missing file named inside it is skipped silently
    kFmtNativeList = 3000,
};

// The version of this interface; raised whenever the class layout below changes.
inline constexpr int32_t kContainerLoaderInterface = 2;

// One file named by a container, in container order.
struct TContainerEntry {
    // An absolute path of this system, or a Windows path ("C:\x.mid", "\x.mid") that the
    // player converts through its drive-letter table.
    std::string path;
    // The loader knows the entry to be a container (a subfolder), so the player must not
    // take it for a song whatever its name looks like. False: the player decides.
    bool isContainer = false;
};

class TContainerLoader {
  public:
    explicit TContainerLoader(const std::string& path) : fPath(path) {}
    TContainerLoader(const TContainerLoader&) = delete;
    TContainerLoader& operator=(const TContainerLoader&) = delete;

    virtual int32_t SpecificationNumber() const noexcept { return kContainerLoaderInterface; }
    virtual ~TContainerLoader() = default;
    // True when this loader reads the file; *kind gets the kind of list row to make.
    virtual bool IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept = 0;
    // Appends the entries of the file to *entries: 0, or -1 when it can't be read (then
    // nothing is appended).
    virtual int32_t Load(const std::string& path,
                         std::vector<TContainerEntry>* entries) noexcept = 0;
    virtual std::string Name() const noexcept = 0;
    virtual std::string Version() const noexcept = 0;
    virtual std::string Copyright() const noexcept = 0;  // one line
    virtual std::string Description() const noexcept = 0;

    // The plug-in's file; empty for a built-in loader.
    const std::string& Path() const noexcept { return fPath; }

  private:
    std::string fPath;
};

inline constexpr char kMakeContainerLoaderSymbol[] = "make_container_loader";
using TMakeContainerLoader = TContainerLoader* (*)(const char* pluginPath);

// The entry point every plug-in defines.
extern "C" TContainerLoader* make_container_loader(const char* pluginPath) noexcept;
