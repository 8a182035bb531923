#include "playlist/song_queue.h"

#include <algorithm>
#include <system_error>

#include "playlist/orvick_view.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFileNotFoundKey[] = "Stat_Str_File_Not_Found";
constexpr char kUnsupportedKey[] = "Stat_Str_Unsupported_File";
constexpr char kAlreadyAddedKey[] = "Stat_Str_Already_Added";

}  // namespace

TSongQueue::TSongQueue(const veldan::TLLT& texts, const fs::path& loaderFolder) : fTexts(texts) {
    load_container_loader(&fLoaders, loaderFolder);
}

TSongQueue::~TSongQueue() { unload_container_loader(&fLoaders); }

const fs::path& TSongQueue::SongRef(int32_t songIndex) const {
    static const fs::path none;
    return songIndex >= 0 && songIndex < Songs() ? fSongs[size_t(songIndex)].ref : none;
}

const std::string& TSongQueue::SongFileName(int32_t songIndex) const {
    static const std::string none;
    return songIndex >= 0 && songIndex < Songs() ? fSongs[size_t(songIndex)].fileName : none;
}

void TSongQueue::Status(const char* key, const std::string& name) const {
    if (fStatus) fStatus(fTexts.Text(key) + name);
}

bool TSongQueue::Add(const fs::path& ref) { return AddOne(ref, kFmtNativeList, false); }

// The rules of TOrvickView's adding, kept in step with it.
bool TSongQueue::AddOne(const fs::path& ref, TSupportFmt parentKind, bool isContainer) {
    std::error_code error;
    if (!ref.is_absolute() || !fs::exists(ref, error)) {
        if (parentKind != kFmtSemiRawList) Status(kFileNotFoundKey, ref.filename().string());
        return false;
    }
    const fs::file_status status = fs::status(ref, error);  // follows links
    if (!fs::is_regular_file(status) && !fs::is_directory(status)) {
        // A pipe, a device or a socket could wait for a writer for ever.
        if (parentKind != kFmtFolderList) Status(kUnsupportedKey, ref.filename().string());
        return false;
    }
    if (!isContainer && fs::is_regular_file(status) && TOrvickView::IsMidiFile(ref)) {
        fSongs.push_back({ref, ref.filename().string()});
        return true;
    }
    fs::path container = fs::weakly_canonical(ref, error);
    if (error) container = ref.lexically_normal();
    TSupportFmt kind = kFmtGeneralList;
    TContainerLoader* loader = find_container_loader(fLoaders, container.string(), &kind);
    if (!loader || fNesting >= TOrvickView::kMaxNesting) {
        if (parentKind != kFmtFolderList) Status(kUnsupportedKey, ref.filename().string());
        return false;
    }
    if (IsAdded(container)) {
        Status(kAlreadyAddedKey, container.filename().string());
        return false;
    }
    return AddContainer(container, kind, loader);
}

bool TSongQueue::AddContainer(const fs::path& ref, TSupportFmt kind, TContainerLoader* loader) {
    std::vector<TContainerEntry> entries;
    if (loader->Load(ref.string(), &entries) != 0) {
        Status(kUnsupportedKey, ref.filename().string());
        return false;
    }
    fContainers.push_back(ref);
    if (!fDriveLetters) fDriveLetters = std::make_unique<TDrvCvt>();
    fNesting++;
    bool any = false;
    for (const TContainerEntry& entry : entries) {
        const fs::path song = resolve_list_entry(entry.path, ref, *fDriveLetters);
        any = AddOne(song, kind, entry.isContainer) || any;
    }
    fNesting--;
    if (any || (kind != kFmtRawList && kind != kFmtSemiRawList)) return true;
    // A raw list is its songs: with none left, it is as if it had never been added.
    fContainers.erase(std::find(fContainers.begin(), fContainers.end(), ref));
    return false;
}

bool TSongQueue::IsAdded(const fs::path& container) const {
    return std::find(fContainers.begin(), fContainers.end(), container) != fContainers.end() ||
           std::any_of(fSongs.begin(), fSongs.end(),
                       [&](const TSong& song) { return song.ref == container; });
}
