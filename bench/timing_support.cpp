#include "bench/timing_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "veldan/base/clock.h"

TGeneratedSong dense_song(int seconds) {
    TGeneratedSong song;
    song.tracks = 16;
    song.ticksPerNote = 10;
    song.noteLengthTicks = 5;
    song.tempoChangeEveryTicks = 960;
    song.bothPorts = true;
    // About 1000 ticks a second with the alternating tempos: 100 notes per track a second.
    song.notes = uint32_t(seconds) * 100 * song.tracks;
    return song;
}

void TIdealTimes::Event(const TSMFEvent& e) {
    if (e.status < 0x80 || e.status >= 0xF1) return;
    if (e.tick != fLastTick) {
        fLastUs = fMap.TickToUs(e.tick, fRate);
        fLastTick = e.tick;
    }
    times[e.port].push_back(fLastUs);
    notes[e.port].push_back(e.length > 0 ? e.data[0] : 0);
}

TStats stats(std::vector<int64_t> values) {
    if (values.empty()) return {0, 0, 0};
    std::sort(values.begin(), values.end());
    auto at = [&](double q) { return double(values[size_t(q * double(values.size() - 1))]); };
    return {at(0.5), at(0.99), double(values.back())};
}

void print_stats(const char* what, const std::vector<int64_t>& values) {
    TStats s = stats(values);
    std::printf("%-34s median %7.0f us   p99 %7.0f us   max %7.0f us   (%zu samples)\n", what,
                s.median, s.p99, s.max, values.size());
}

void print_drift(const std::vector<int64_t>& lateness) {
    size_t tenth = lateness.size() / 10;
    std::vector<int64_t> first(lateness.begin(), lateness.begin() + long(tenth));
    std::vector<int64_t> last(lateness.end() - long(tenth), lateness.end());
    std::printf("drift: median lateness %.0f us in the first tenth, %.0f us in the last\n",
                stats(first).median, stats(last).median);
}

double load_average() {
    double load[1] = {-1};
    getloadavg(load, 1);
    return load[0];
}

TBareLoop::TBareLoop(std::vector<int64_t> offsets)
    : TThread("BareLoop", veldan::kMusicPriority), fOffsets(std::move(offsets)) {
    fLateness.reserve(fOffsets.size());
}

int32_t TBareLoop::Execute() {
    int64_t start = veldan::system_time();
    for (int64_t offset : fOffsets) {
        int64_t deadline = start + offset;
        while (veldan::system_time() < deadline)
            if (!SleepUntil(deadline)) return 0;
        fLateness.push_back(veldan::system_time() - deadline);
    }
    return 0;
}

std::vector<int64_t> run_bare_loop(int seconds, bool* realTime) {
    std::vector<int64_t> offsets;
    for (int64_t us = 0; us < int64_t(seconds) * 1000000; us += 1000) offsets.push_back(us);
    TBareLoop bare(offsets);
    bare.Resume();
    bare.Wait();
    if (realTime) *realTime = bare.IsRealTime();
    return bare.Lateness();
}
