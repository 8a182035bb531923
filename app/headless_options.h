#pragma once
// Command-line options of the window-less modes.

#include <cstdint>
#include <string>
#include <vector>

struct THeadlessOptions {
    bool dump = false;
    bool listPorts = false;
    bool help = false;
    std::vector<std::string> files;
    std::string wavPath;
    std::string outName;
    std::string outNameB;
    std::string tracePath;
    std::string renderPath;  // --render: the song into this WAV file, faster than real time
    int32_t key = 0;
    int32_t tempoPercent = 100;
    int32_t volumePercent = 100;
    int32_t playMode = 0;  // the player's six modes, 0..5
    // -1 for each of these: as the preferences say.
    int32_t resetMask = -1;           // resets sent before each song: 1 GM, 2 GS, 4 88, 8 XG
    int32_t resetSilenceMs = -1;      // after each reset
    int32_t songSilenceSeconds = -1;  // before each song
    int32_t loopTimes = -1;           // a marked loop's extra passes; turns playing it on
    int32_t fadeSeconds = -1;         // the fade after a marked loop
};

extern const char* const kHeadlessUsage;

// false with a message in *error for an unknown option, a missing value or a value out of
// its range (--key -12..12, --tempo 30..300, --volume 0..200, --mode 0..5, --resets 0..15,
// --reset-silence 0..60000 ms, --song-silence 0..3600 s, --loops 1..99, --fade 0..30 s).
bool parse_headless_options(int argc, char** argv, THeadlessOptions* options, std::string* error);
