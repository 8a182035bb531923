// Timing through the real application, the way a user plays a song: quillmidi runs as a
// child process with the built-in synthesizer on, and its trace is lined up with the
// song's ideal times. Next to it, in the same run, the bare absolute-sleep loop at the
// play thread's priority: the lateness this machine gives any thread at that moment.
//
//   bench_app timing [SECONDS] [RUNS]   (default 30 s, 3 runs) the dense song (>2000
//       events/s, tempo changes, both ports) through
//       quillmidi --headless --resets 0 --wav OUT --trace TRACE SONG;
//       each run: the bare loop, then the application; lateness, drift, load average
//
// One command on a quiet machine, after scripts/build:
//   build/bin/bench_app timing 30 5
// QUILLMIDI=/path/to/quillmidi runs another build of the program.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench/timing_support.h"
#include "veldan/base/clock.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

std::string program() {
    const char* chosen = std::getenv("QUILLMIDI");
    return chosen && chosen[0] ? chosen : QUILLMIDI_BINARY;
}

// A folder of its own for the song, the outputs and the settings (a user's preferences
// must not change what is measured).
fs::path make_work_folder() {
    std::string pattern = (fs::temp_directory_path() / "bench-app-XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        std::perror("mkdtemp");
        std::exit(1);
    }
    fs::create_directories(fs::path(pattern) / "config");
    return pattern;
}

// Starts quillmidi with args, its output into files of the work folder; *startedUs is
// system_time() just before the spawn.
pid_t spawn_quillmidi(const fs::path& work, const std::vector<std::string>& args,
                      const std::vector<std::string>& extraEnv, int64_t* startedUs) {
    std::vector<std::string> all = {program()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : all) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<std::string> envText = {"XDG_CONFIG_HOME=" + (work / "config").string()};
    envText.insert(envText.end(), extraEnv.begin(), extraEnv.end());
    std::vector<char*> env;
    for (std::string& entry : envText) env.push_back(entry.data());
    for (char** entry = environ; *entry; ++entry)
        if (std::string(*entry).rfind("XDG_CONFIG_HOME=", 0) != 0) env.push_back(*entry);
    env.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string out = (work / "stdout.txt").string(), err = (work / "stderr.txt").string();
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    *startedUs = veldan::system_time();
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), env.data()) != 0) {
        std::perror(argv[0]);
        std::exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int wait_child(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string file_text(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

struct TTraceEvent {
    int64_t us;
    uint8_t note;  // first data byte
};

// The trace's events of each port with a time of 0 or later: what the song sent.
bool read_trace(const fs::path& path, std::vector<TTraceEvent> events[2]) {
    std::ifstream in(path);
    if (!in) return false;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        long long us;
        std::string port, status, data1;
        if (!(fields >> us >> port >> status)) continue;
        fields >> data1;
        if (us < 0 || (port != "A" && port != "B")) continue;
        events[port == "B"].push_back(
            {us, uint8_t(data1.empty() ? 0 : std::stoul(data1, nullptr, 16))});
    }
    return true;
}

void print_header(const char* what) {
    std::printf("---- %s (load average %.2f)\n", what, load_average());
    std::fflush(stdout);
}

// Returns the application's lateness, port A then port B, or nothing when the run failed.
std::vector<int64_t> play_through_app(const fs::path& work, const TIdealTimes& ideal,
                                      std::vector<int64_t>* latenessA) {
    const fs::path trace = work / "trace.txt";
    fs::remove(trace);
    int64_t startedUs;
    pid_t pid =
        spawn_quillmidi(work,
                        {"--headless", "--resets", "0", "--wav", (work / "out.wav").string(),
                         "--trace", trace.string(), (work / "song.mid").string()},
                        {}, &startedUs);
    const int status = wait_child(pid);
    std::vector<TTraceEvent> events[2];
    if (status != 0 || !read_trace(trace, events)) {
        std::printf("quillmidi failed (exit %d): %s\n", status,
                    file_text(work / "stderr.txt").c_str());
        return {};
    }
    std::vector<int64_t> lateness;
    size_t mismatched = 0;
    for (int port = 0; port < 2; ++port) {
        const size_t expected = ideal.times[port].size();
        if (events[port].size() < expected)
            std::printf("port %c: %zu events traced of %zu\n", 'A' + port, events[port].size(),
                        expected);
        const size_t n = std::min(events[port].size(), expected);
        for (size_t i = 0; i < n; ++i) {
            if (events[port][i].note != ideal.notes[port][i]) ++mismatched;
            const int64_t late = events[port][i].us - ideal.times[port][i];
            lateness.push_back(late);
            if (port == 0) latenessA->push_back(late);
        }
    }
    if (mismatched) std::printf("%zu traced events do not match the song's\n", mismatched);
    return lateness;
}

int timing(int seconds, int runs) {
    const fs::path work = make_work_folder();
    const std::vector<uint8_t> song = generate_smf(dense_song(seconds));
    {
        std::ofstream out(work / "song.mid", std::ios::binary);
        out.write(reinterpret_cast<const char*>(song.data()), std::streamsize(song.size()));
    }
    TSMFProducer producer;
    if (producer.SetTo(std::vector<uint8_t>(song)) != 0) {
        std::fprintf(stderr, "the generated song does not load: %s\n",
                     producer.LastError().c_str());
        return 1;
    }
    TIdealTimes ideal(producer.TempoMap(), 100);
    producer.Walk(ideal);
    std::printf("song: %d s, %zu events on port A, %zu on port B, tempo change every 960 ticks\n",
                seconds, ideal.times[0].size(), ideal.times[1].size());
    std::printf("application: %s\n", program().c_str());
    std::vector<double> appMedians, bareMedians, appP99s, bareP99s;
    for (int run = 1; run <= runs; ++run) {
        char title[64];
        std::snprintf(title, sizeof title, "run %d of %d: bare loop", run, runs);
        print_header(title);
        bool realTime = false;
        std::vector<int64_t> bare = run_bare_loop(seconds, &realTime);
        print_stats("bare absolute-sleep loop", bare);
        if (!realTime)
            std::printf("(real-time priority refused: the figures are not comparable)\n");
        std::snprintf(title, sizeof title, "run %d of %d: application", run, runs);
        print_header(title);
        std::vector<int64_t> latenessA;
        std::vector<int64_t> app = play_through_app(work, ideal, &latenessA);
        if (app.empty()) return 1;
        print_stats("application (trace vs ideal)", app);
        print_drift(latenessA);
        const TStats a = stats(app), b = stats(bare);
        appMedians.push_back(a.median);
        appP99s.push_back(a.p99);
        bareMedians.push_back(b.median);
        bareP99s.push_back(b.p99);
        std::printf("application - bare: median %+.0f us, p99 %.2fx\n", a.median - b.median,
                    b.p99 > 0 ? a.p99 / b.p99 : 0.0);
    }
    auto summary = [](const char* what, std::vector<double> values) {
        std::sort(values.begin(), values.end());
        std::printf("%-24s median of runs %6.0f us, from %6.0f to %6.0f us\n", what,
                    values[values.size() / 2], values.front(), values.back());
    };
    std::printf("---- %d runs (load average now %.2f)\n", runs, load_average());
    summary("application median", appMedians);
    summary("bare loop median", bareMedians);
    summary("application p99", appP99s);
    summary("bare loop p99", bareP99s);
    fs::remove_all(work);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string mode = argc > 1 ? argv[1] : "timing";
    if (mode == "timing")
        return timing(argc > 2 ? std::max(1, std::atoi(argv[2])) : 30,
                      argc > 3 ? std::max(1, std::atoi(argv[3])) : 3);
    std::fprintf(stderr, "usage: bench_app timing [SECONDS] [RUNS]\n");
    return 2;
}
