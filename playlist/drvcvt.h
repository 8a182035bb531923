#pragma once
// TDrvCvt: turns Windows paths in playlists ("C:\Music\song.mid", "\Music\song.mid") into
// paths of this system, through a user-edited table that maps each drive letter A to Z
// to a folder.
//
// The table is the settings file "DriveLetter.arc" in the settings subfolder "Shared"
// (shared with the maker's other programs): one string field per letter, named by the
// upper-case letter, empty for an unmapped letter. Without a readable file the defaults
// hold: A is "/no name", C is "/windows", the rest unmapped; a file replaces them all.

#include <array>
#include <filesystem>
#include <string>

#include "veldan/core/archivable.h"

class TDrvCvt : public veldan::TArchivable {
  public:
    static constexpr char kFileName[] = "DriveLetter.arc";
    static constexpr char kSubFolder[] = "Shared";

    // Defaults, then Load.
    TDrvCvt();

    // False, with the table kept as it was, when the file can't be read.
    bool Load();
    bool Save() const;

    // Letters are folded to upper case; anything but A..Z is ignored.
    void SetBeDL(char letter, const std::string& path);
    // False for anything but a letter, and for an unmapped letter.
    bool GetBeDL(char letter, std::string* path) const;

    // Converts a line of a playlist; basePath is the playlist file's own path. False for
    // a relative path, an unmapped drive letter, or a root path without a base path.
    bool CvtPathWinToBe(const char* winPath, std::string* out, const char* basePath) const;

    bool Archive(veldan::TMessage* into) const override;
    bool Unarchive(const veldan::TMessage& from) override;

  private:
    std::array<std::string, 26> fPaths;
};

// A line of a playlist as a path of this system: a path of this system is taken as it is
// (from Shift-JIS when written so), a Windows path goes through driveLetters; container is
// the playlist file. An unconvertible line stays relative, to be reported missing.
std::filesystem::path resolve_list_entry(const std::string& line,
                                         const std::filesystem::path& container,
                                         const TDrvCvt& driveLetters);
