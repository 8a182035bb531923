#pragma once
// Generates large Standard MIDI Files in memory for the benchmarks: notes spread over
// tracks and channels, with running status, optional tempo changes and port changes.

#include <cstdint>
#include <vector>

struct TGeneratedSong {
    uint32_t notes = 1000000;
    uint32_t tracks = 16;
    uint32_t ticksPerNote = 10;  // spacing of note-ons within one track
    uint32_t noteLengthTicks = 5;
    uint32_t tempoChangeEveryTicks = 0;  // 0: one tempo for the whole song
    bool bothPorts = false;              // odd tracks go to port B
    uint32_t controlEveryNotes = 0;      // 0: none; else an expression change and a pitch bend
                                         // with every that many notes
    int16_t division = 480;
};

std::vector<uint8_t> generate_smf(const TGeneratedSong& song);
