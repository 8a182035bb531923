#pragma once
// TSongList: the flat sequence of songs the player walks, and which of them is current.
// The playlist view is one; the command-line player, which has no window, keeps another.

#include <cstdint>
#include <filesystem>
#include <string>

class TSongList {
  public:
    virtual ~TSongList() = default;

    virtual int32_t Songs() const = 0;
    // The song's file; empty when there are fewer songs.
    virtual const std::filesystem::path& SongRef(int32_t songIndex) const = 0;
    // The leaf name of the song's file, the key of the learned scores; empty when there
    // are fewer songs.
    virtual const std::string& SongFileName(int32_t songIndex) const = 0;
    // -1 when no song is current.
    virtual int32_t CurSongIdx() const = 0;
    virtual void SetCurSongIdx(int32_t songIndex) = 0;
};
