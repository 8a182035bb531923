// Chase on seek in a long song: the time to build the index as the song loads, its memory,
// and the time of one seek's look-up (the part the play thread does before playing on).
//   bench_chase               10M notes in 64 tracks, a controller and a bend every 4 notes
//   bench_chase NOTES TRACKS

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "bench/smf_generator.h"
#include "engine/chase_index.h"
#include "engine/smf_producer.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    TGeneratedSong song;
    song.notes = argc == 3 ? uint32_t(std::atol(argv[1])) : 10000000;
    song.tracks = argc == 3 ? uint32_t(std::atol(argv[2])) : 64;
    song.controlEveryNotes = 4;
    song.bothPorts = true;
    TSMFProducer producer;
    if (producer.SetTo(generate_smf(song)) != 0) {
        std::fprintf(stderr, "bench_chase: %s\n", producer.LastError().c_str());
        return 1;
    }
    auto start = std::chrono::steady_clock::now();
    TChaseIndex index(producer);
    const double buildSeconds = seconds_since(start);

    std::mt19937 random(7);
    std::uniform_int_distribution<uint32_t> anywhere(0, producer.CountTicks());
    TChaseIndex::TState state;
    std::vector<double> lookUpsMs;
    for (int i = 0; i < 2000; ++i) {
        const uint32_t tick = anywhere(random);
        auto lookUp = std::chrono::steady_clock::now();
        index.StateAt(tick, &state);
        lookUpsMs.push_back(seconds_since(lookUp) * 1000.0);
    }
    std::sort(lookUpsMs.begin(), lookUpsMs.end());
    std::printf(
        "chase %u notes / %u tracks: %zu channel-state events, index built in %.3f s, "
        "%.1f MB; seek look-up median %.3f ms, 99th %.3f ms, worst %.3f ms\n",
        song.notes, song.tracks, index.CountEvents(), buildSeconds,
        double(index.CountEvents() * 8 + (index.CountEvents() / TChaseIndex::kSnapshotEvery + 1) *
                                             sizeof(TChaseIndex::TState)) /
            1e6,
        lookUpsMs[lookUpsMs.size() / 2], lookUpsMs[lookUpsMs.size() * 99 / 100], lookUpsMs.back());
    return 0;
}
