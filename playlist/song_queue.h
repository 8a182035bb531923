#pragma once
// TSongQueue: a song list without a window, for the command-line player. Files, folders and
// playlists are added as the playlist view adds them to its first list, flattened: a
// container's songs in the order its loader reads them, nothing sorted, each container at
// most once, none nested deeper than TOrvickView::kMaxNesting. What cannot be added is told
// to the status function in the same words as the view's status line.
//
// Needs no QApplication; used on one thread.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "loaders/container_loader.h"
#include "playlist/drvcvt.h"
#include "playlist/loader_host.h"
#include "playlist/song_list.h"

namespace veldan {
class TLLT;
}

class TSongQueue : public TSongList {
  public:
    using TStatusFn = std::function<void(const std::string&)>;

    // texts must outlive the queue; the loader list is built from loaderFolder once.
    explicit TSongQueue(const veldan::TLLT& texts,
                        const std::filesystem::path& loaderFolder = default_loader_folder());
    ~TSongQueue() override;

    void SetStatusFn(TStatusFn status) { fStatus = std::move(status); }

    // A song, a folder or a container; false, with a status text, when it is missing,
    // unsupported, a container already added, or a raw list with nothing in it.
    bool Add(const std::filesystem::path& ref);

    int32_t Songs() const override { return int32_t(fSongs.size()); }
    const std::filesystem::path& SongRef(int32_t songIndex) const override;
    const std::string& SongFileName(int32_t songIndex) const override;
    int32_t CurSongIdx() const override { return fCurSongIdx; }
    void SetCurSongIdx(int32_t songIndex) override { fCurSongIdx = songIndex; }

  private:
    struct TSong {
        std::filesystem::path ref;
        std::string fileName;
    };
    bool AddOne(const std::filesystem::path& ref, TSupportFmt parentKind, bool isContainer);
    bool AddContainer(const std::filesystem::path& ref, TSupportFmt kind, TContainerLoader* loader);
    bool IsAdded(const std::filesystem::path& container) const;
    void Status(const char* key, const std::string& name) const;

    const veldan::TLLT& fTexts;
    TLoaderList fLoaders;
    // Read when a Windows path is first met, as the view does.
    std::unique_ptr<TDrvCvt> fDriveLetters;
    TStatusFn fStatus;
    std::vector<TSong> fSongs;
    std::vector<std::filesystem::path> fContainers;
    int32_t fCurSongIdx = -1;
    int fNesting = 0;
};
