#include "app/headless_options.h"

#include <charconv>
#include <cstring>

#include "engine/loop_plan.h"

const char* const kHeadlessUsage =
    "usage: quillmidi [FILE...]                          open the window with these files\n"
    "       quillmidi --headless [options] FILE...       play without a window\n"
    "       quillmidi --dump FILE.mid                    print the events in play order\n"
    "       quillmidi --list-ports                       list the MIDI consumers\n"
    "       quillmidi --render OUT.wav FILE.mid          render the song through the built-in\n"
    "                                                    synthesizer, faster than real time\n"
    "                                                    (OUT.flac: a FLAC file)\n"
    "FILE is a MIDI file, a folder of them or a playlist (.qml, or any kind a plug-in in\n"
    "the Loader folder reads); they go into one list, played as the play mode says.\n"
    "options:\n"
    "  --mode N              0 in order, 1 in order repeating, 2 one song, 3 one song\n"
    "                        repeating, 4 random, 5 random as learned from skips\n"
    "  --wav OUT.wav         render through the built-in synthesizer into a WAV file\n"
    "  --out NAME            port A to the consumer NAME (exact, else unique part)\n"
    "  --out-b NAME          port B to the consumer NAME (without --out and --out-b,\n"
    "                        both ports play through the built-in synthesizer)\n"
    "  --key N               transpose by N semitones, -12..12\n"
    "  --tempo PCT           tempo rate, 30..300 percent\n"
    "  --volume PCT          velocity scale, 0..200 percent\n"
    "  --resets MASK         resets before each song: 1 GM, 2 GS, 4 88, 8 XG, 0 none\n"
    "  --reset-silence MS    silence after each reset, 0..60000 ms\n"
    "  --song-silence S      silence before each song, 0..3600 s\n"
    "                        (without these three, as the preferences say)\n"
    "  --loops N             play the loop a song marks (controller 111, or the markers\n"
    "                        loopStart and loopEnd) N more times, 1..99, then fade out\n"
    "  --fade S              the fade after the loops, 0..30 s\n"
    "                        (without these two, as the preferences say; --render plays\n"
    "                        loops only with --loops, and fades 8 s unless told)\n"
    "  --trace FILE          write every event that leaves the ports: <us> <A|B> <bytes>\n";

namespace {

bool parse_int(const char* text, int32_t low, int32_t high, int32_t* value) {
    const char* end = text + std::strlen(text);
    auto [ptr, ec] = std::from_chars(text, end, *value);
    return ec == std::errc() && ptr == end && *value >= low && *value <= high;
}

}  // namespace

bool parse_headless_options(int argc, char** argv, THeadlessOptions* options, std::string* error) {
    struct TRange {
        const char* name;
        int32_t low, high;
        int32_t* target;
    };
    const TRange ranges[] = {
        {"--key", -12, 12, &options->key},
        {"--tempo", 30, 300, &options->tempoPercent},
        {"--volume", 0, 200, &options->volumePercent},
        {"--mode", 0, 5, &options->playMode},
        {"--resets", 0, 15, &options->resetMask},
        {"--reset-silence", 0, 60000, &options->resetSilenceMs},
        {"--song-silence", 0, 3600, &options->songSilenceSeconds},
        {"--loops", TLoopSettings::kMinTimes, TLoopSettings::kMaxTimes, &options->loopTimes},
        {"--fade", 0, TLoopSettings::kMaxFadeSeconds, &options->fadeSeconds}};
    struct TText {
        const char* name;
        std::string* target;
    };
    const TText texts[] = {{"--wav", &options->wavPath},
                           {"--out", &options->outName},
                           {"--out-b", &options->outNameB},
                           {"--trace", &options->tracePath},
                           {"--render", &options->renderPath}};
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--headless") continue;
        if (arg == "--help" || arg == "-h") {
            options->help = true;
            return true;
        }
        if (arg == "--dump" || arg == "--list-ports") {
            (arg == "--dump" ? options->dump : options->listPorts) = true;
            continue;
        }
        if (arg.rfind("--", 0) != 0) {
            options->files.push_back(arg);
            continue;
        }
        bool known = false;
        for (const TRange& range : ranges) {
            if (arg != range.name) continue;
            known = true;
            if (i + 1 >= argc || !parse_int(argv[++i], range.low, range.high, range.target)) {
                *error = arg + " takes a whole number from " + std::to_string(range.low) + " to " +
                         std::to_string(range.high);
                return false;
            }
        }
        for (const TText& text : texts) {
            if (arg != text.name) continue;
            known = true;
            if (i + 1 >= argc) {
                *error = arg + " needs a value";
                return false;
            }
            *text.target = argv[++i];
        }
        if (!known) {
            *error = "unknown option " + arg;
            return false;
        }
    }
    if (options->listPorts) return true;
    if (options->files.empty()) {
        *error = "no file given";
        return false;
    }
    if (options->dump && options->files.size() != 1) {
        *error = "--dump takes one file";
        return false;
    }
    if (!options->renderPath.empty() && options->files.size() != 1) {
        *error = "--render takes one file";
        return false;
    }
    return true;
}
