#include "player/play_modes.h"

namespace quill {

namespace {

bool random_song_idx(const TSongPick& pick, int32_t* index) {
    if (pick.songs == 0) return true;
    // Another song than the current one, unless there is no other.
    do {
        int32_t drawn = pick.draw();
        *index = pick.mode == kPlayModeRandom ? drawn % pick.songs : drawn;
    } while (*index == pick.current && pick.songs > 1);
    return true;
}

bool is_random(int32_t mode) { return mode == kPlayModeRandom || mode == kPlayModeAIRandom; }

}  // namespace

bool next_song_idx(const TSongPick& pick, bool atEnd, int32_t* index) {
    switch (pick.mode) {
        case kPlayModeMono:
            if (atEnd) return false;
            [[fallthrough]];
        case kPlayModeSeq:
            if (pick.current == pick.songs - 1) return false;
            *index = pick.current + 1;
            return true;
        case kPlayModeSeqRepeat:
            *index = pick.current + 1;
            return true;
        case kPlayModeMonoRepeat:
            *index = atEnd ? pick.current : pick.current + 1;
            return true;
        default:
            return !is_random(pick.mode) || random_song_idx(pick, index);
    }
}

bool prev_song_idx(const TSongPick& pick, int32_t* index) {
    switch (pick.mode) {
        case kPlayModeSeq:
        case kPlayModeMono:
            if (pick.current == 0) return false;
            *index = pick.current - 1;
            return true;
        case kPlayModeSeqRepeat:
        case kPlayModeMonoRepeat:
            *index = pick.current - 1;
            return true;
        default:
            return !is_random(pick.mode) || random_song_idx(pick, index);
    }
}

int32_t fold_song_idx(int32_t index, int32_t songs) {
    if (index < 0) return songs - 1;
    if (index >= songs) return 0;
    return index;
}

}  // namespace quill
