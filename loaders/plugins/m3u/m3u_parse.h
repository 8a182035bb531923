#pragma once
// Parsing of M3U and M3U8 playlists, apart from the plug-in so that it can be fuzzed.
//
// Lines: blank lines and lines starting with "#" (comments, "#EXTM3U", "#EXTINF:...") are
// skipped; a "file://" URL is decoded to its path; other URLs ("http://...") are skipped.
// Absolute paths of this system and Windows paths ("C:\...", "\...") are passed on as they
// stand; relative paths (with "\" or "/" between folders) are resolved against folder.
// An M3U8 file is UTF-8; in an M3U file each line that is not UTF-8 is read as Shift-JIS
// or Latin-1 (see veldan::to_utf8).

#include <string>
#include <vector>

#include "loaders/container_loader.h"

std::vector<TContainerEntry> parse_m3u(const std::string& text, const std::string& folder,
                                       bool utf8Only);
