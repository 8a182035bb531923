// Real-time behaviour of the whole chain: producer -> note-on managers -> filters ->
// public ports -> a consumer that writes down arrival times.
//   bench_chain timing [SECONDS]    dense song (>2000 events/s, tempo changes, both ports):
//                                   lateness against the ideal times, next to a bare
//                                   absolute-sleep loop on the same machine; drift
//   bench_chain sustained           10M notes (~61,000 notes/s) in real time: keeps up?
//   bench_chain cpu FILE [SECONDS]  CPU time of the process while a real song plays
//   bench_chain jack [SECONDS]      the dense song through port A to a JACK client on a jackd
//                                   of our own (dummy driver, 48 kHz, 256 frames): lateness
//                                   of each event's frame time against its ideal time

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench/smf_generator.h"
#include "bench/timing_support.h"
#include "engine/output_chain.h"
#include "engine/smf_producer.h"
#include "midi/backends.h"
#include "midi/local_consumer.h"
#include "midi/quiet_probe.h"
#include "midi/roster.h"
#include "tests/support/jack_server.h"
#include "veldan/base/clock.h"
#include "veldan/base/thread.h"

namespace {

// Writes down when each event arrives; storage reserved up front.
class TArrivalProbe : public TMidiLocalConsumer {
  public:
    explicit TArrivalProbe(size_t capacity) : TMidiLocalConsumer("probe", 1 << 14) {
        fArrivals.reserve(capacity);
    }
    ~TArrivalProbe() override { StopReceiving(); }
    void Data(const uint8_t*, size_t, bool, int64_t) override {
        if (fArrivals.size() < fArrivals.capacity()) fArrivals.push_back(veldan::system_time());
    }
    const std::vector<int64_t>& Arrivals() const { return fArrivals; }

  private:
    std::vector<int64_t> fArrivals;
};

struct TRun {
    std::vector<int64_t> lateness;  // all ports, in arrival order of port A then B
    std::vector<int64_t> latenessA;
    int64_t wallUs;
    bool realTime;
};

TRun play_through_chain(std::vector<uint8_t> bytes, int32_t rate) {
    TSMFProducer producer;
    if (producer.SetTo(std::move(bytes)) != 0) {
        std::fprintf(stderr, "load failed: %s\n", producer.LastError().c_str());
        std::exit(1);
    }
    TIdealTimes ideal(producer.TempoMap(), rate);
    producer.Walk(ideal);
    TOutputChain chain(producer);
    TArrivalProbe probeA(ideal.times[0].size()), probeB(ideal.times[1].size());
    chain.PublicOut(0)->Connect(&probeA);
    chain.PublicOut(1)->Connect(&probeB);
    std::atomic<uint32_t> ended{0};
    producer.SetEndOfSongHandler([&] {
        ended.store(1);
        veldan::futex_wake(&ended, 1);
    });
    producer.SetTempoRate(rate);
    int64_t start = veldan::system_time();
    producer.Play();
    while (!ended.load()) veldan::futex_wait_until(&ended, 0, veldan::system_time() + 100000);
    chain.WaitIdle(5000000);
    probeA.WaitIdle(5000000);
    probeB.WaitIdle(5000000);
    TRun run;
    run.wallUs = veldan::system_time() - start;
    run.realTime = false;
    int64_t origin = producer.PlayStartedUs();
    const TArrivalProbe* probes[2] = {&probeA, &probeB};
    for (int port = 0; port < 2; ++port) {
        const std::vector<int64_t>& arrivals = probes[port]->Arrivals();
        size_t n = std::min(arrivals.size(), ideal.times[port].size());
        if (arrivals.size() != ideal.times[port].size())
            std::printf("port %c: %zu arrivals for %zu events\n", 'A' + port, arrivals.size(),
                        ideal.times[port].size());
        for (size_t i = 0; i < n; ++i) {
            int64_t late = arrivals[i] - (origin + ideal.times[port][i]);
            run.lateness.push_back(late);
            if (port == 0) run.latenessA.push_back(late);
        }
    }
    return run;
}

int timing(int seconds) {
    TRun run = play_through_chain(generate_smf(dense_song(seconds)), 100);
    double rate = double(run.lateness.size()) / (double(run.wallUs) / 1e6);
    std::printf(
        "song: %d s, %zu events through the chain, %.0f events/s, both ports, tempo "
        "change every 960 ticks\n",
        seconds, run.lateness.size(), rate);
    print_stats("chain lateness (arrival vs ideal)", run.lateness);
    print_drift(run.latenessA);

    // The bare loop sleeps to deadlines at the same spacing (one per distinct tick time).
    bool realTime = false;
    std::vector<int64_t> bare = run_bare_loop(std::min(seconds, 30), &realTime);
    print_stats("bare absolute-sleep loop", bare);
    std::printf("real-time priority: %s\n", realTime ? "SCHED_FIFO granted" : "refused");
    return 0;
}

int sustained() {
    TGeneratedSong song;
    song.notes = 10000000;
    song.tracks = 64;
    song.division = 960;
    song.ticksPerNote = 2;
    song.noteLengthTicks = 1;
    TRun run = play_through_chain(generate_smf(song), 100);
    double ideal = double(song.notes) / 64 * 2 / 1920.0;
    std::printf("10M notes / 64 tracks: %.1f s of music played in %.1f s (%.0f notes/s)\n", ideal,
                run.wallUs / 1e6, song.notes / (run.wallUs / 1e6));
    print_stats("chain lateness (arrival vs ideal)", run.lateness);
    return 0;
}

double cpu_seconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

int cpu(const char* path, int seconds) {
    TSMFProducer producer;
    if (producer.SetTo(path) != 0) {
        std::fprintf(stderr, "%s: %s\n", path, producer.LastError().c_str());
        return 1;
    }
    TOutputChain chain(producer);
    TArrivalProbe probe(1 << 20);
    chain.PublicOut(0)->Connect(&probe);
    double before = cpu_seconds();
    int64_t start = veldan::system_time();
    producer.Play();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    double used = cpu_seconds() - before;
    double wall = (veldan::system_time() - start) / 1e6;
    producer.Stop();
    std::printf("%s: %zu events in %.0f s, CPU %.2f%% of one core\n", path, probe.Arrivals().size(),
                wall, 100.0 * used / wall);
    return 0;
}

int jack(int seconds) {
    TJackServer server(true);
    bool up;
    {
        TQuietProbe quiet;  // the waiting client's attempts before the server answers
        up = server.WaitUntilUp();
    }
    if (!up) {
        std::fprintf(stderr, "jackd did not start (scripts/install-deps --test installs it)\n");
        return 1;
    }
    TMidiBackends backends;
    TMidiBackends::TOptions options;
    options.useAlsa = false;
    options.jackServer = server.Name();
    if (backends.Start(options) != 1) {
        std::fprintf(stderr, "%s\n", backends.Status().c_str());
        return 1;
    }
    TSMFProducer producer;
    producer.SetTo(generate_smf(dense_song(seconds)));
    TIdealTimes ideal(producer.TempoMap(), 100);
    producer.Walk(ideal);
    TOutputChain chain(producer);
    TJackReader reader(server.Name(), "bench-reader", ideal.times[0].size() + 16);
    TMidiConsumer* consumer = nullptr;
    wait_for(
        [&] { return (consumer = TMidiRoster::Default().FindConsumerByName(reader.PortName())); });
    if (!consumer || chain.PublicOut(0)->Connect(consumer) != 0) {
        std::fprintf(stderr, "the reader's port did not reach the roster\n");
        return 1;
    }
    wait_for([&] { return reader.IsConnected(); });
    std::atomic<uint32_t> ended{0};
    producer.SetEndOfSongHandler([&] { ended.store(1); });
    producer.Play();
    wait_for([&] { return ended.load() != 0; }, std::chrono::seconds(seconds * 2 + 30));
    reader.WaitFor(ideal.times[0].size());
    // Lateness in JACK's own time, the frames of the audio clock, against the typical (median)
    // delay: JACK's clock is not the monotonic one and drifts from it (with the dummy driver
    // by a few hundred ppm), so comparing across the two clocks would measure the drift, and
    // one late first event must not shift all the others.
    std::vector<int64_t> lateness;
    size_t n = std::min(reader.Count(), ideal.times[0].size());
    const int64_t firstFrame = reader.Event(0).frame;
    for (size_t i = 0; i < n; ++i) {
        int64_t playedUs = (int64_t(reader.Event(i).frame) - firstFrame) * 1000000 / kJackRate;
        lateness.push_back(playedUs - (ideal.times[0][i] - ideal.times[0][0]));
    }
    const int64_t typical = stats(lateness).median;
    for (int64_t& late : lateness) late -= int64_t(typical);
    std::printf(
        "JACK (real-time jackd, dummy driver, 48 kHz, 256-frame periods = 5333 us): "
        "%zu of %zu events, %zu xruns\n",
        n, ideal.times[0].size(), reader.Xruns());
    print_stats("JACK frames vs ideal, minus median", lateness);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string mode = argc > 1 ? argv[1] : "timing";
    if (mode == "timing") return timing(argc > 2 ? std::atoi(argv[2]) : 300);
    if (mode == "sustained") return sustained();
    if (mode == "jack") return jack(argc > 2 ? std::atoi(argv[2]) : 30);
    if (mode == "cpu" && argc > 2) return cpu(argv[2], argc > 3 ? std::atoi(argv[3]) : 30);
    std::fprintf(
        stderr,
        "usage: bench_chain timing [SECONDS] | sustained | cpu FILE [SECONDS] | jack [SECONDS]\n");
    return 2;
}
