#pragma once
// Renders a loaded song through the built-in synthesizer into a WAV file, or a FLAC file
// when the name ends in ".flac", faster than real time: the song is walked with a virtual clock
// (its tempo map at the chosen rate), and the synthesizer renders the samples between one event and
// the next. Both lanes are rendered, as the synthesizer hears ports A and B (channels 1-16 and
// 17-32); the key and the volume are applied as the output chain applies them, and a
// marked loop is played as the producer's loop settings say (see TLoopPlan).

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class TSMFProducer;

struct TRenderOptions {
    int32_t tempoPercent = 100;
    int32_t key = 0;
    int32_t volumePercent = 100;
    int64_t tailUs = 1500000;             // after the last event, so release tails are heard
    std::vector<std::string> soundFonts;  // empty: the synthesizer's default
    bool reverb = true;
    bool chorus = true;
};

// Told the song time rendered and the song's length now and then; false cancels.
using TRenderProgressFn = std::function<bool(int64_t doneUs, int64_t totalUs)>;

// 0 when the file is complete; -1 with *error when the synthesizer or the file failed, or
// when progress cancelled (the file is then removed). The producer must have no play
// thread (the song is walked).
int32_t render_song(TSMFProducer& producer, const std::string& path, const TRenderOptions& options,
                    const TRenderProgressFn& progress, std::string* error);
