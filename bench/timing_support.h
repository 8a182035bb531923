#pragma once
// What the timing benchmarks share: the dense song they play, the ideal time of each event
// that leaves a port, the statistics they print, and the bare absolute-sleep loop that is
// their yardstick (the lateness this machine gives any thread of ours, with nothing to do).

#include <cstdint>
#include <vector>

#include "bench/smf_generator.h"
#include "engine/smf_producer.h"
#include "engine/tempo_map.h"
#include "veldan/base/thread.h"

// Over 2000 events a second on 16 tracks, both ports, the tempo changing every 960 ticks.
TGeneratedSong dense_song(int seconds);

// The ideal send times of every event that leaves each port, in order, counted from the
// song's start at the given tempo rate; notes[] holds each event's first data byte, to
// check that a trace lines up with the song.
class TIdealTimes : public TSMFEventSink {
  public:
    TIdealTimes(const TTempoMap& map, int32_t rate) : fMap(map), fRate(rate) {}
    void Event(const TSMFEvent& e) override;
    std::vector<int64_t> times[2];
    std::vector<uint8_t> notes[2];

  private:
    const TTempoMap& fMap;
    int32_t fRate;
    uint32_t fLastTick = 0xFFFFFFFF;
    int64_t fLastUs = 0;
};

struct TStats {
    double median, p99, max;
};
TStats stats(std::vector<int64_t> values);
void print_stats(const char* what, const std::vector<int64_t>& values);
// The median lateness of the first and the last tenth: a clock that drifts shows here.
void print_drift(const std::vector<int64_t>& lateness);
// The 1-minute load average, for every figure: this machine is shared.
double load_average();

// Sleeps to the same kind of absolute deadlines as the play thread, at its priority and
// on its core, with nothing else to do.
class TBareLoop : public veldan::TThread {
  public:
    explicit TBareLoop(std::vector<int64_t> offsets);
    ~TBareLoop() override { Stop(); }
    const std::vector<int64_t>& Lateness() const { return fLateness; }

  protected:
    int32_t Execute() override;

  private:
    std::vector<int64_t> fOffsets;
    std::vector<int64_t> fLateness;
};

// Runs the bare loop for the given seconds, one deadline a millisecond (the dense song's
// spacing of distinct tick times), and returns its lateness; *realTime says whether
// SCHED_FIFO was granted.
std::vector<int64_t> run_bare_loop(int seconds, bool* realTime);
