#pragma once
// TCLNative100: the built-in loader of the player's own playlist format #100.
//
// The file is lines ending in LF (a CR before it is dropped): the first line is exactly
// "MarnelList$1", every further line one path, in playlist order. Paths are absolute paths
// of this system; lines from Windows ("C:\...", "\...") are converted by the playlist view.
// Lines are passed on unchanged, empty ones included.
//
// Limits: a file larger than kMaxFileBytes is not loaded (Load fails); a line longer than
// kMaxLineBytes names no file that could exist here and is skipped.

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "loaders/container_loader.h"

class TCLNative100 : public TContainerLoader {
  public:
    static constexpr char kHeaderLine[] = "MarnelList$1";
    static constexpr size_t kMaxLineBytes = 2048;
    static constexpr size_t kMaxFileBytes = 16 * 1024 * 1024;
    static constexpr char kMimeType[] = "text/x-vnd.VELDAN-QuillMIDI-PlayList";

    TCLNative100() : TContainerLoader(std::string()) {}

    // *kind is set to the native list kind whatever the answer.
    bool IsLoadable(const std::string& path, TSupportFmt* kind) const noexcept override;
    int32_t Load(const std::string& path, std::vector<TContainerEntry>* entries) noexcept override;
    std::string Name() const noexcept override;
    std::string Version() const noexcept override;
    std::string Copyright() const noexcept override;
    std::string Description() const noexcept override;
};

// Splits text into lines at LF, dropping one CR before each LF; a last line without LF
// counts when it is not empty.
std::vector<std::string> split_lines(const std::string& text);

// Reads a whole file of at most maxBytes bytes; false when it can't be read or is larger.
bool read_small_file(const std::string& path, size_t maxBytes, std::string* text);

// Writes a list in format #100 (the header line, then one path per line) over target, whole
// or not at all, with the playlist MIME type as the file's "user.mime_type" attribute. A
// link is written through. False with *error (the path and the reason) when the file could
// not be written; target is then as it was.
bool write_native_list(const std::filesystem::path& target, const std::vector<std::string>& paths,
                       std::string* error);
