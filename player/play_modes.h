#pragma once
// The six play modes and how each picks the song after (or before) the current one.
//
// An index returned here may lie outside the song sequence; fold_song_idx brings it back
// (below 0 to the last song, past the end to the first), which is what makes the
// repeating modes wrap.

#include <cstdint>
#include <functional>

namespace quill {

enum TPlayMode : int32_t {
    kPlayModeSeq = 0,         // sequential, stop after the last song
    kPlayModeSeqRepeat = 1,   // sequential, wrap to the first song
    kPlayModeMono = 2,        // one song, then stop
    kPlayModeMonoRepeat = 3,  // repeat the current song
    kPlayModeRandom = 4,
    kPlayModeAIRandom = 5,  // random by learned scores
};

struct TSongPick {
    int32_t mode = kPlayModeSeq;
    int32_t current = 0;
    int32_t songs = 0;
    // Draws a song index for the random modes: any non-negative number for mode 4 (taken
    // modulo the song count), an index into the sequence for mode 5.
    std::function<int32_t()> draw;
};

// False when the mode has no next song; else true with *index set. *index is left as it
// was when there is nothing to choose from (random modes with no songs, unknown modes).
bool next_song_idx(const TSongPick& pick, bool atEnd, int32_t* index);
// As next_song_idx, towards the first song.
bool prev_song_idx(const TSongPick& pick, int32_t* index);
int32_t fold_song_idx(int32_t index, int32_t songs);

}  // namespace quill
