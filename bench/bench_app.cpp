// Timing through the real application, the way a user plays a song: quillmidi runs as a
// child process with the built-in synthesizer on, and its trace is lined up with the
// song's ideal times. Next to it, in the same run, the bare absolute-sleep loop at the
// play thread's priority: the lateness this machine gives any thread at that moment.
//
//   bench_app timing [SECONDS] [RUNS]   (default 30 s, 3 runs) the dense song (>2000
//       events/s, tempo changes, both ports) through
//       quillmidi --headless --resets 0 --wav OUT --trace TRACE SONG;
//       each run: the bare loop, then the application; lateness (also of the first event
//       at each time alone, which no earlier event of the same chord holds up), drift,
//       load average
//   bench_app launch [RUNS]             (default 10) launch to first sound: from just before
//       the spawn of `quillmidi --headless SONG`, and of the window `quillmidi SONG` on Qt's
//       offscreen platform, to the first note-on reaching the built-in synthesizer (the
//       program's QUILLMIDI_FIRST_SOUND stamp), fresh settings, warm disk cache (one run
//       first, not counted); the yardstick in the same runs: `fluidsynth` itself rendering
//       a one-note song into a file, start to exit, with the samples loaded as needed (as
//       the player does) and all at once (its default)
//
// One command on a quiet machine, after scripts/build:
//   build/bin/bench_app timing 30 5 && build/bin/bench_app launch 10
// QUILLMIDI=/path/to/quillmidi runs another build of the program.

#include <fcntl.h>
#include <signal.h>
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
pid_t spawn_program(const fs::path& work, std::vector<std::string> all,
                    const std::vector<std::string>& extraEnv, int64_t* startedUs) {
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
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), env.data()) != 0) {
        std::perror(argv[0]);
        std::exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

pid_t spawn_quillmidi(const fs::path& work, const std::vector<std::string>& args,
                      const std::vector<std::string>& extraEnv, int64_t* startedUs) {
    std::vector<std::string> all = {program()};
    all.insert(all.end(), args.begin(), args.end());
    return spawn_program(work, all, extraEnv, startedUs);
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

void write_file(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

void print_header(const char* what) {
    std::printf("---- %s (load average %.2f)\n", what, load_average());
    std::fflush(stdout);
}

// Each run's figure, then their median and range.
void print_series(const char* what, const char* unit, std::vector<double> values) {
    std::vector<double> good;
    for (double value : values)
        if (value >= 0) good.push_back(value);
    std::printf("%-44s", what);
    for (double value : values) std::printf(value >= 0 ? " %6.1f" : "   fail", value);
    if (!good.empty()) {
        std::sort(good.begin(), good.end());
        std::printf("   median %6.1f %s, %.1f to %.1f", good[good.size() / 2], unit, good.front(),
                    good.back());
    }
    std::printf("\n");
}

// Returns the application's lateness, port A then port B, or nothing when the run failed;
// *leading gets that of each port's first event at each time only (a chord's first note),
// which no earlier event of the same moment holds up.
std::vector<int64_t> play_through_app(const fs::path& work, const TIdealTimes& ideal,
                                      std::vector<int64_t>* latenessA,
                                      std::vector<int64_t>* leading) {
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
            if (i == 0 || ideal.times[port][i] != ideal.times[port][i - 1])
                leading->push_back(late);
        }
    }
    if (mismatched) std::printf("%zu traced events do not match the song's\n", mismatched);
    return lateness;
}

int timing(int seconds, int runs) {
    const fs::path work = make_work_folder();
    const std::vector<uint8_t> song = generate_smf(dense_song(seconds));
    write_file(work / "song.mid", song);
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
    std::vector<double> appMedians, bareMedians, appP99s, bareP99s, p99Ratios;
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
        std::vector<int64_t> latenessA, leading;
        std::vector<int64_t> app = play_through_app(work, ideal, &latenessA, &leading);
        if (app.empty()) return 1;
        print_stats("application (trace vs ideal)", app);
        print_stats("  first event at each time", leading);
        print_drift(latenessA);
        const TStats a = stats(app), b = stats(bare);
        appMedians.push_back(a.median);
        appP99s.push_back(a.p99);
        bareMedians.push_back(b.median);
        bareP99s.push_back(b.p99);
        p99Ratios.push_back(b.p99 > 0 ? 100.0 * a.p99 / b.p99 : -1.0);
        std::printf("application - bare: median %+.0f us, p99 %.2fx\n", a.median - b.median,
                    b.p99 > 0 ? a.p99 / b.p99 : 0.0);
    }
    std::printf("---- %d runs, microseconds, in run order (load average now %.2f)\n", runs,
                load_average());
    print_series("application median", "us", appMedians);
    print_series("bare loop median", "us", bareMedians);
    print_series("application p99", "us", appP99s);
    print_series("bare loop p99", "us", bareP99s);
    // Run by run: the bare loop's own p99 swings most from run to run.
    print_series("application p99, % of the bare loop's", "%", p99Ratios);
    fs::remove_all(work);
    return 0;
}

// One track of quarter notes at 120 bpm, the first at tick 0.
std::vector<uint8_t> notes_from_tick_zero(int count) {
    std::vector<uint8_t> body;
    for (int i = 0; i < count; ++i) {
        const uint8_t note = uint8_t(60 + i % 12);
        body.insert(body.end(), {0x00, 0x90, note, 100, 0x83, 0x60, 0x80, note, 0});
    }
    body.insert(body.end(), {0x00, 0xFF, 0x2F, 0x00});
    std::vector<uint8_t> file = {'M', 'T', 'h', 'd',  0,    0,   0,   6,   0,
                                 0,   0,   1,   0x01, 0xE0, 'M', 'T', 'r', 'k'};
    for (int shift = 24; shift >= 0; shift -= 8) file.push_back(uint8_t(body.size() >> shift));
    file.insert(file.end(), body.begin(), body.end());
    return file;
}

// Milliseconds from just before the spawn to the first sound, or -1 when none came.
double launch_to_first_sound(const fs::path& work, const std::vector<std::string>& args,
                             std::vector<std::string> env) {
    const fs::path stamp = work / "first-sound.txt";
    fs::remove(stamp);
    env.push_back("QUILLMIDI_FIRST_SOUND=" + stamp.string());
    int64_t startedUs;
    const pid_t pid = spawn_quillmidi(work, args, env, &startedUs);
    int64_t firstUs = 0;
    for (int64_t deadline = startedUs + 20000000; veldan::system_time() < deadline;) {
        std::ifstream in(stamp);
        if (in >> firstUs) break;
        if (waitpid(pid, nullptr, WNOHANG) == pid) return -1;
        usleep(1000);
    }
    kill(pid, SIGINT);
    wait_child(pid);
    // Without a sound device the synthesizer renders into a file of its own, named by pid.
    fs::remove(fs::temp_directory_path() / ("quill-synth-" + std::to_string(pid) + ".wav"));
    return firstUs > 0 ? double(firstUs - startedUs) / 1000.0 : -1;
}

// Milliseconds from just before the spawn to the end of fluidsynth.
double fluidsynth_run(const fs::path& work, bool dynamicSamples) {
    int64_t startedUs;
    const pid_t pid =
        spawn_program(work,
                      {"fluidsynth", "-n", "-i", "-q", "-F", (work / "fluid.wav").string(), "-o",
                       std::string("synth.dynamic-sample-loading=") + (dynamicSamples ? "1" : "0"),
                       "/usr/share/sounds/sf2/FluidR3_GM.sf2", (work / "note.mid").string()},
                      {}, &startedUs);
    const int status = wait_child(pid);
    return status == 0 ? double(veldan::system_time() - startedUs) / 1000.0 : -1;
}

int launch(int runs) {
    const fs::path work = make_work_folder();
    // A song that sounds from its first tick and goes on for a few seconds, so that the
    // player is still playing when its first sound is stamped; and one note alone.
    write_file(work / "song.mid", notes_from_tick_zero(16));
    write_file(work / "note.mid", notes_from_tick_zero(1));
    const std::string path = (work / "song.mid").string();
    const std::vector<std::string> offscreen = {"QT_QPA_PLATFORM=offscreen"};
    std::printf("application: %s\n", program().c_str());
    print_header("warming the disk cache (not counted)");
    launch_to_first_sound(work, {"--headless", path}, {});
    launch_to_first_sound(work, {path}, offscreen);
    fluidsynth_run(work, true);
    fluidsynth_run(work, false);
    std::vector<double> headless, window, fluidDynamic, fluidWhole;
    std::vector<double> loads;
    for (int run = 0; run < runs; ++run) {
        loads.push_back(load_average());
        headless.push_back(launch_to_first_sound(work, {"--headless", path}, {}));
        window.push_back(launch_to_first_sound(work, {path}, offscreen));
        fluidDynamic.push_back(fluidsynth_run(work, true));
        fluidWhole.push_back(fluidsynth_run(work, false));
    }
    std::printf("---- %d runs, milliseconds, in run order; load average at each run's start:\n",
                runs);
    std::printf("%-44s", "load average");
    for (double load : loads) std::printf(" %6.2f", load);
    std::printf("\n");
    print_series("quillmidi --headless SONG, to first sound", "ms", headless);
    print_series("quillmidi SONG (window, offscreen), same", "ms", window);
    print_series("fluidsynth -F, samples as needed, to exit", "ms", fluidDynamic);
    print_series("fluidsynth -F, all samples (default), exit", "ms", fluidWhole);
    fs::remove_all(work);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string mode = argc > 1 ? argv[1] : "timing";
    if (mode == "timing")
        return timing(argc > 2 ? std::max(1, std::atoi(argv[2])) : 30,
                      argc > 3 ? std::max(1, std::atoi(argv[3])) : 3);
    if (mode == "launch") return launch(argc > 2 ? std::max(1, std::atoi(argv[2])) : 10);
    std::fprintf(stderr, "usage: bench_app timing [SECONDS] [RUNS] | launch [RUNS]\n");
    return 2;
}
