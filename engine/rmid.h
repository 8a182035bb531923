#pragma once
// RIFF MIDI ("RMID"): a Standard MIDI File inside a RIFF container, as some Windows
// programs save songs (usually ".rmi"). The reader itself takes only files that start with
// "MThd"; this takes the file out of its wrapper first.

#include <cstdint>
#include <string>
#include <vector>

// A file that does not start with "RIFF" is left as it is, and 0 is returned. An RMID file
// is replaced by the bytes of its "data" chunk (0). Anything else starting with "RIFF" -- a
// WAVE file, a wrapper cut short, a "data" chunk that runs past the end or is missing --
// leaves the bytes alone and returns -1 with the reason in *error.
int32_t unwrap_rmid(std::vector<uint8_t>* file, std::string* error);
