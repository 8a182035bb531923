#pragma once
// Text helpers of the shipped loader plug-ins: capped file reading, line splitting, file
// name tests and the decoding of lines in legacy encodings.

#include <cstddef>
#include <string>
#include <vector>

namespace quill_plugin {

// Whole playlists larger than this are refused rather than read.
inline constexpr size_t kMaxFileBytes = 16 * 1024 * 1024;
// Longer lines can't name a file (PATH_MAX) and are skipped.
inline constexpr size_t kMaxLineBytes = 4096;

// The whole file when it is a regular file of at most maxBytes; false otherwise.
bool read_capped_file(const std::string& path, size_t maxBytes, std::string* text);
// Up to bytes bytes from the start of a regular file; empty when it can't be read.
std::string read_head(const std::string& path, size_t bytes);
// Lines split at LF, a CR before the LF dropped, lines longer than kMaxLineBytes left out;
// a UTF-8 byte-order mark at the start is dropped.
std::vector<std::string> text_lines(const std::string& text);
// True when the file name ends in "." and one of exts, ignoring ASCII case.
bool has_extension(const std::string& path, const std::vector<std::string>& exts);
bool is_regular_file(const std::string& path);
std::string trimmed(const std::string& text);

// "C:\..." or "C:/...", or a path from the root of a Windows volume ("\...").
bool is_windows_absolute(const std::string& path);

}  // namespace quill_plugin
