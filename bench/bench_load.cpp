// Load and index time and memory of large files.
//   bench_load               1M notes in 16 tracks and 10M notes in 64 tracks
//   bench_load NOTES TRACKS  one size
// Each size runs in a child process so its peak memory is its own.

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "bench/smf_generator.h"
#include "engine/smf_producer.h"

namespace {

long status_kib(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field) + 1);
    return -1;
}

void reset_peak() { std::ofstream("/proc/self/clear_refs") << "5"; }

void measure(uint32_t notes, uint32_t tracks) {
    TGeneratedSong song;
    song.notes = notes;
    song.tracks = tracks;
    std::vector<uint8_t> bytes = generate_smf(song);
    size_t fileBytes = bytes.size();
    TSMFProducer producer;
    reset_peak();
    long before = status_kib("VmRSS:");
    auto start = std::chrono::steady_clock::now();
    int32_t status = producer.SetTo(std::move(bytes));
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    long peak = status_kib("VmHWM:");
    size_t events = 0;
    for (size_t i = 0; i < producer.CountTracks(); ++i) events += producer.TrackAt(i).CountEvents();
    double indexBytes = double(peak - before) * 1024.0;
    std::printf(
        "load %u notes / %u tracks: status %d, file %.1f MB, %zu events, %.3f s, "
        "index %.2f bytes/event (peak %.1f MB over the file)\n",
        notes, tracks, status, fileBytes / 1e6, events, seconds, indexBytes / events,
        indexBytes / 1e6);
}

void measure_in_child(uint32_t notes, uint32_t tracks) {
    std::fflush(stdout);
    pid_t child = fork();
    if (child == 0) {
        measure(notes, tracks);
        std::fflush(stdout);
        _exit(0);
    }
    int status;
    waitpid(child, &status, 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3) {
        measure_in_child(uint32_t(std::atol(argv[1])), uint32_t(std::atol(argv[2])));
        return 0;
    }
    measure_in_child(1000000, 16);
    measure_in_child(10000000, 64);
    return 0;
}
