// The command-line player, run as a user runs it: a child process with real files.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <jack/jack.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "app/settings/settings.h"
#include "tests/support/fault_child.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"

namespace {

struct TResult {
    int exitCode;
    std::string out;
    std::string err;
};

std::string quoted(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

// The settings folder of a run: the preferences the player reads lie in it.
std::filesystem::path config_home(const TTempDir& dir) { return dir.Path() / "config"; }

// prefix runs before the program, such as an env command; binary is the program's file.
TResult run_quillmidi(const std::string& arguments, const TTempDir& dir,
                      const std::string& prefix = "",
                      const std::filesystem::path& binary = QUILLMIDI_BINARY) {
    std::string errPath = (dir.Path() / "stderr.txt").string();
    std::string command = "env XDG_CONFIG_HOME=" + quoted(config_home(dir)) + " " + prefix + " " +
                          quoted(binary) + " " + arguments + " 2>" + errPath;
    TResult result{-1, {}, {}};
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return result;
    std::array<char, 4096> buffer;
    size_t n;
    while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        result.out.append(buffer.data(), n);
    int status = pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(errPath);
    std::stringstream text;
    text << err.rdbuf();
    result.err = text.str();
    return result;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

TEST(Headless, DumpPrintsEventsInPlayOrderWithTrackAndPort) {
    TTempDir dir;
    TSmfBuilder smf(1, 96);
    smf.AddTrack().Name(0, "Hi").NoteOn(0, 0, 60, 100).Event(10, {60, 0});
    smf.AddTrack().Port(0, 1).SysEx(0, {0x7E, 0x7F, 0x09, 0x01, 0xF7}).Program(10, 2, 3);
    auto file = dir.Write("song.mid", smf.Bytes());
    TResult result = run_quillmidi("--dump " + quoted(file), dir);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(lines_of(result.out),
              (std::vector<std::string>{"0 0 0 ff 03 48 69", "0 0 0 90 3c 64", "0 1 0 ff 21 01",
                                        "0 1 1 f0 7e 7f 09 01 f7", "10 0 0 90 3c 00",
                                        "10 0 0 ff 2f", "10 1 1 c2 03", "10 1 1 ff 2f"}));
}

TEST(Headless, AnUnreadableFileIsNamedWithItsReasonAndTheNextOnePlays) {
    TTempDir dir;
    TSmfBuilder format2(2);
    format2.AddTrack();
    TSmfBuilder good(1, 480);
    good.AddTrack().Name(0, "Good Song").NoteOn(0, 0, 60, 100).NoteOff(240, 0, 60);
    auto bad = dir.Write("bad.mid", format2.Bytes());
    auto text = dir.Write("notes.txt", std::string("hello"));
    auto song = dir.Write("good.mid", good.Bytes());
    auto wav = dir.Path() / "out.wav";
    TResult result = run_quillmidi("--headless --wav " + quoted(wav) + " " + quoted(bad) + " " +
                                       quoted(text) + " " + quoted(song),
                                   dir);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("bad.mid: format 2 is not supported"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("Not a supported file: notes.txt"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("Good Song"), std::string::npos) << result.out;
}

TEST(Headless, AFileWithoutTracksIsNamedAndPassedOver) {
    TTempDir dir;
    TSmfBuilder good(1, 480);
    good.AddTrack().Name(0, "After The Empty One").NoteOn(0, 0, 60, 100).NoteOff(96, 0, 60);
    auto empty = dir.Write("empty.mid", TSmfBuilder(1, 480).Bytes());
    auto song = dir.Write("good.mid", good.Bytes());
    TResult result = run_quillmidi("--headless --wav " + quoted(dir.Path() / "out.wav") + " " +
                                       quoted(empty) + " " + quoted(song),
                                   dir);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("empty.mid: the file has no tracks"), std::string::npos)
        << result.err;
    EXPECT_NE(result.out.find("After The Empty One"), std::string::npos) << result.out;
}

TEST(Headless, PlaysToTheBuiltInSynthesizerIntoAWavFileAndTracesWhatLeft) {
    TTempDir dir;
    TSmfBuilder smf(1, 480);
    smf.AddTrack()
        .Program(0, 0, 0)
        .NoteOn(0, 0, 60, 100)
        .NoteOff(480, 0, 60)
        .NoteOn(0, 0, 64, 100)
        .NoteOff(480, 0, 64);
    smf.AddTrack().Port(0, 1).NoteOn(240, 1, 50, 90).NoteOff(240, 1, 50);
    auto song = dir.Write("song.mid", smf.Bytes());
    auto wav = dir.Path() / "song.wav";
    auto trace = dir.Path() / "trace.txt";
    TResult result = run_quillmidi("--headless --key 2 --volume 50 --wav " + quoted(wav) +
                                       " --trace " + quoted(trace) + " " + quoted(song),
                                   dir);
    ASSERT_EQ(result.exitCode, 0) << result.err;

    std::ifstream in(trace);
    std::vector<std::string> portA, portB;
    int64_t previous = -1;
    for (std::string line; std::getline(in, line);) {
        int64_t us = std::stoll(line);
        EXPECT_GE(us, previous) << "trace lines come in time order";
        previous = us;
        std::string event = line.substr(line.find(' ') + 3);
        (line[line.find(' ') + 1] == 'A' ? portA : portB).push_back(event);
    }
    // Key +2 and half velocity, on the lane each track chose.
    EXPECT_EQ(portA,
              (std::vector<std::string>{"c0 00", "90 3e 32", "80 3e 00", "90 42 32", "80 42 00"}));
    EXPECT_EQ(portB, (std::vector<std::string>{"91 34 2d", "81 34 00"}));

    std::vector<uint8_t> bytes = read_file_bytes(wav);
    ASSERT_GT(bytes.size(), 44u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "RIFF");
    size_t frames = (bytes.size() - 44) / 4;
    double seconds = double(frames) / 44100.0;
    EXPECT_GT(seconds, 1.0);  // one second of song and a release tail
    EXPECT_LT(seconds, 10.0);
    int peak = 0;
    for (size_t i = 44; i + 1 < bytes.size(); i += 2)
        peak = std::max(peak, std::abs(int(int16_t(bytes[i] | bytes[i + 1] << 8))));
    EXPECT_GT(peak, 100) << "the notes should be heard";
}

// The first-sound stamp of start-up benchmarks: the time the first note-on reached the
// built-in synthesizer, on the clock of the process that started the player, after that
// start and before the player ended. A song without a note leaves no stamp.
TEST(Headless, StampsTheFirstNoteOnThatReachedTheSynthesizerWhenAsked) {
    TTempDir dir;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Program(0, 0, 0).NoteOn(240, 0, 60, 100).NoteOff(240, 0, 60);
    auto song = dir.Write("song.mid", smf.Bytes());
    auto stamp = dir.Path() / "first-sound.txt";
    auto monotonic_us = [] {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return int64_t(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
    };
    const int64_t before = monotonic_us();
    TResult result = run_quillmidi(
        "--headless --resets 0 --wav " + quoted(dir.Path() / "o.wav") + " " + quoted(song), dir,
        "QUILLMIDI_FIRST_SOUND=" + quoted(stamp));
    const int64_t after = monotonic_us();
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::ifstream in(stamp);
    int64_t firstSoundUs = 0;
    ASSERT_TRUE(in >> firstSoundUs) << "no stamp written";
    EXPECT_GT(firstSoundUs, before);
    EXPECT_LT(firstSoundUs, after);

    TSmfBuilder silent(1, 480);
    silent.AddTrack().Program(0, 0, 0).Program(480, 0, 1);
    auto silentSong = dir.Write("silent.mid", silent.Bytes());
    auto silentStamp = dir.Path() / "silent-first-sound.txt";
    result = run_quillmidi(
        "--headless --resets 0 --wav " + quoted(dir.Path() / "s.wav") + " " + quoted(silentSong),
        dir, "QUILLMIDI_FIRST_SOUND=" + quoted(silentStamp));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_FALSE(std::filesystem::exists(silentStamp));
}

TEST(Headless, InterruptSilencesEverySoundingNoteBeforeExiting) {
    TTempDir dir;
    TSmfBuilder smf(1, 480);
    TTrackBuilder& track = smf.AddTrack();
    for (uint8_t note = 40; note < 80; ++note) track.NoteOn(120, uint8_t(note % 3), note, 100);
    track.NoteOff(480 * 60, 0, 40);  // everything still sounds half a minute later
    auto song = dir.Write("long.mid", smf.Bytes());
    auto trace = dir.Path() / "trace.txt";
    TScopedEnv configHome("XDG_CONFIG_HOME", config_home(dir).c_str());
    std::vector<std::string> args = {
        QUILLMIDI_BINARY, "--headless",   "--wav",      (dir.Path() / "o.wav").string(),
        "--trace",        trace.string(), song.string()};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    ASSERT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    kill(pid, SIGINT);
    int exitStatus = 0;
    waitpid(pid, &exitStatus, 0);
    ASSERT_TRUE(WIFEXITED(exitStatus));
    EXPECT_EQ(WEXITSTATUS(exitStatus), 130);
    std::ifstream in(trace);
    std::map<std::string, int> sounding;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string us, port, status, note, velocity;
        fields >> us >> port >> status >> note >> velocity;
        std::string key = status.substr(1) + " " + note;
        if (status[0] == '9' && velocity != "00") ++sounding[key];
        if (status[0] == '8' || (status[0] == '9' && velocity == "00")) sounding[key] = 0;
    }
    EXPECT_GT(sounding.size(), 10u) << "the song should have been playing";
    for (const auto& [key, count] : sounding) EXPECT_EQ(count, 0) << "hanging: " << key;
}

TEST(Headless, BadArgumentsAreRefusedWithTheRange) {
    TTempDir dir;
    TResult result = run_quillmidi("--headless --key 13 x.mid", dir);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("--key takes a whole number from -12 to 12"), std::string::npos);
    EXPECT_EQ(run_quillmidi("--headless --frobnicate x.mid", dir).exitCode, 2);
    EXPECT_EQ(run_quillmidi("--headless", dir).exitCode, 2);
}

TEST(Headless, WithoutADisplayTheSongsPlayInTheTerminal) {
    TTempDir dir;
    TSmfBuilder smf(1, 96);
    smf.AddTrack().Name(0, "Quiet").NoteOn(0, 0, 60, 100).NoteOff(96, 0, 60);
    auto song = dir.Write("song.mid", smf.Bytes());
    TResult result =
        run_quillmidi(quoted(song), dir, "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("no display"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("Quiet"), std::string::npos) << result.out;
}

// The player without a window creates no widget, so it needs none of Qt's platform
// plug-ins: a copy of the program whose qt.conf sends Qt to an empty folder for them (where
// a QApplication could not start) still plays.
TEST(Headless, PlaysWhereQtHasNoPlatformPluginToDrawWith) {
    TTempDir dir;
    std::filesystem::create_directories(dir.Path() / "bin");
    std::filesystem::create_directories(dir.Path() / "no-qt");
    const std::filesystem::path binary = dir.Path() / "bin" / "quillmidi";
    std::filesystem::copy_file(QUILLMIDI_BINARY, binary);
    dir.Write("bin/qt.conf", "[Paths]\nPrefix=" + (dir.Path() / "no-qt").string() + "\n");
    TSmfBuilder smf(1, 96);
    smf.AddTrack().Name(0, "Plain").NoteOn(0, 0, 60, 100).NoteOff(96, 0, 60);
    auto song = dir.Write("song.mid", smf.Bytes());
    auto wav = dir.Path() / "out.wav";
    TResult result = run_quillmidi("--wav " + quoted(wav) + " " + quoted(song), dir,
                                   "env -u QT_PLUGIN_PATH -u QT_QPA_PLATFORM_PLUGIN_PATH", binary);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Plain"), std::string::npos) << result.out;
    std::error_code error;
    EXPECT_GT(std::filesystem::file_size(wav, error), 44u) << "nothing was rendered";
}

}  // namespace

// One short song whose track name is its title.
std::vector<uint8_t> titled_song(const char* title) {
    TSmfBuilder smf(1, 96);
    smf.AddTrack().Name(0, title).NoteOn(0, 0, 60, 100).NoteOff(48, 0, 60);
    return smf.Bytes();
}

std::vector<std::string> titles_in(const std::string& out) {
    std::vector<std::string> titles;
    for (const std::string& line : lines_of(out))
        if (!line.empty() && line[0] != ' ' && line.rfind("Rendering", 0) != 0)
            titles.push_back(line);
    return titles;
}

TEST(Headless, APlaylistFileOnTheCommandLinePlaysItsSongsInItsOrder) {
    TTempDir dir;
    auto alpha = dir.Write("alpha.mid", titled_song("Alpha"));
    auto beta = dir.Write("beta.mid", titled_song("Beta"));
    auto list =
        dir.Write("songs.qml", "MarnelList$1\n" + beta.string() + "\n" + alpha.string() + "\n");
    TResult result =
        run_quillmidi("--wav " + quoted(dir.Path() / "o.wav") + " " + quoted(list), dir);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(titles_in(result.out), (std::vector<std::string>{"Beta", "Alpha"})) << result.out;
}

TEST(Headless, PlayModesDecideWhatFollows) {
    TTempDir dir;
    auto alpha = dir.Write("alpha.mid", titled_song("Alpha"));
    auto beta = dir.Write("beta.mid", titled_song("Beta"));
    std::string files =
        " --wav " + quoted(dir.Path() / "o.wav") + " " + quoted(alpha) + " " + quoted(beta);
    TResult one = run_quillmidi("--mode 2" + files, dir);
    EXPECT_EQ(one.exitCode, 0) << one.err;
    EXPECT_EQ(titles_in(one.out), std::vector<std::string>{"Alpha"}) << one.out;
    TResult all = run_quillmidi("--mode 0" + files, dir);
    EXPECT_EQ(titles_in(all.out), (std::vector<std::string>{"Alpha", "Beta"})) << all.out;
    EXPECT_EQ(run_quillmidi("--mode 6" + files, dir).exitCode, 2);
}

TEST(Headless, ResetsAndTheirSilencesComeFromThePreferencesUnlessGiven) {
    TTempDir dir;
    {
        TScopedEnv configHome("XDG_CONFIG_HOME", config_home(dir).c_str());
        pref().sendSysResets = true;
        pref().sysResetCombination = 0x0A;  // GS and XG
        pref().silenceAfterResetsUs = 150000;
        ASSERT_TRUE(save_pref(true));
        pref() = TPref();
    }
    auto song = dir.Write("song.mid", titled_song("Reset"));
    auto trace = dir.Path() / "trace.txt";
    auto run = [&](const std::string& extra) {
        TResult result = run_quillmidi("--headless --wav " + quoted(dir.Path() / "o.wav") +
                                           " --trace " + quoted(trace) + extra + " " + quoted(song),
                                       dir);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        std::vector<std::pair<int64_t, std::string>> portA;
        std::ifstream in(trace);
        for (std::string line; std::getline(in, line);)
            if (line[line.find(' ') + 1] == 'A')
                portA.emplace_back(std::stoll(line), line.substr(line.find(' ') + 3, 5));
        return portA;
    };
    auto events = run("");
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events[0].second, "f0 41");
    EXPECT_EQ(events[1].second, "f0 43");
    EXPECT_EQ(events[2].second, "90 3c");
    // Arrival times: a message may reach the recorder up to a millisecond after its send.
    EXPECT_GE(events[1].first - events[0].first, 149000) << "the silence after the GS reset";
    EXPECT_GE(events[2].first - events[1].first, 149000) << "the silence after the XG reset";

    events = run(" --resets 0");
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events[0].second, "90 3c");
}

namespace {

// The 16-bit stereo frames of a WAV file that the synthesizer wrote, and their peak.
struct TWavFacts {
    double seconds = 0;
    int peak = 0;
};

TWavFacts wav_facts(const std::filesystem::path& path) {
    std::vector<uint8_t> bytes = read_file_bytes(path);
    TWavFacts facts;
    if (bytes.size() <= 44) return facts;
    facts.seconds = double((bytes.size() - 44) / 4) / 44100.0;
    for (size_t i = 44; i + 1 < bytes.size(); i += 2)
        facts.peak = std::max(facts.peak, std::abs(int(int16_t(bytes[i] | bytes[i + 1] << 8))));
    return facts;
}

}  // namespace

TEST(Headless, RenderWritesTheSongAsPlayingWouldWithoutWaitingForIt) {
    TTempDir dir;
    TSmfBuilder smf(1, 480);
    TTrackBuilder& track = smf.AddTrack().Program(0, 0, 0);
    for (uint8_t note = 60; note < 68; ++note) track.NoteOn(0, 0, note, 100).NoteOff(240, 0, note);
    auto song = dir.Write("song.mid", smf.Bytes());  // 2 s at 120 beats a minute
    auto rendered = dir.Path() / "rendered.wav";
    TResult result = run_quillmidi("--render " + quoted(rendered) + " " + quoted(song), dir);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Rendered"), std::string::npos) << result.out;
    const TWavFacts offline = wav_facts(rendered);
    EXPECT_NEAR(offline.seconds, 2.0 + 1.5, 1.0 / 44100) << "the song and the release tail";
    EXPECT_GT(offline.peak, 100) << "the notes should be heard";

    auto played = dir.Path() / "played.wav";
    ASSERT_EQ(
        run_quillmidi("--headless --wav " + quoted(played) + " " + quoted(song), dir).exitCode, 0);
    const TWavFacts realTime = wav_facts(played);
    // Playing adds the moments before the first note and after the tail's end.
    EXPECT_NEAR(realTime.seconds, offline.seconds, 0.5);
    EXPECT_GT(realTime.peak, 100);

    EXPECT_EQ(run_quillmidi("--render " + quoted(rendered), dir).exitCode, 2) << "no song";
    TResult broken = run_quillmidi(
        "--render " + quoted(rendered) + " " + quoted(dir.Write("x.mid", std::string("nope"))),
        dir);
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_NE(broken.err.find("not a MIDI file"), std::string::npos) << broken.err;
}

namespace {

// A quarter of intro, then a loop (controller 111) of two quarters with note 62 in it, at
// 120 beats a minute: 1.5 s in all.
std::vector<uint8_t> looping_song() {
    TSmfBuilder smf(1, 480);
    smf.AddTrack()
        .Program(0, 0, 0)
        .NoteOn(0, 0, 60, 100)
        .NoteOff(480, 0, 60)
        .Control(0, 0, 111, 0)
        .NoteOn(0, 0, 62, 100)
        .NoteOff(480, 0, 62)
        .NoteOn(0, 0, 64, 100)
        .NoteOff(480, 0, 64);
    return smf.Bytes();
}

TEST(Headless, LoopOptionsOutOfTheirRangeAreRefusedWithIt) {
    TTempDir dir;
    for (const char* value : {"0", "100", "-1", "twice", "2.5"}) {
        TResult result = run_quillmidi(std::string("--headless --loops ") + value + " x.mid", dir);
        EXPECT_EQ(result.exitCode, 2) << value;
        EXPECT_NE(result.err.find("--loops takes a whole number from 1 to 99"), std::string::npos)
            << value << ": " << result.err;
    }
    for (const char* value : {"31", "-1", "long"}) {
        TResult result = run_quillmidi(std::string("--headless --fade ") + value + " x.mid", dir);
        EXPECT_EQ(result.exitCode, 2) << value;
        EXPECT_NE(result.err.find("--fade takes a whole number from 0 to 30"), std::string::npos)
            << value << ": " << result.err;
    }
    EXPECT_EQ(run_quillmidi("--headless --loops", dir).exitCode, 2);
    TResult help = run_quillmidi("--help", dir);
    EXPECT_NE(help.out.find("--loops N"), std::string::npos);
    EXPECT_NE(help.out.find("--fade S"), std::string::npos);
}

TEST(Headless, RenderPlaysAMarkedLoopOnlyWhenAskedTo) {
    TTempDir dir;
    auto song = dir.Write("loop.mid", looping_song());
    auto plain = dir.Path() / "plain.wav";
    ASSERT_EQ(run_quillmidi("--render " + quoted(plain) + " " + quoted(song), dir).exitCode, 0);
    EXPECT_NEAR(wav_facts(plain).seconds, 1.5 + 1.5, 1.0 / 44100) << "the song and the tail";
    auto looped = dir.Path() / "looped.wav";
    TResult result =
        run_quillmidi("--render " + quoted(looped) + " --loops 2 --fade 0 " + quoted(song), dir);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NEAR(wav_facts(looped).seconds, 1.5 + 2 * 1.0 + 1.5, 1.0 / 44100) << "two more loops";
    EXPECT_NE(result.out.find("(0:03)"), std::string::npos) << result.out;
    auto faded = dir.Path() / "faded.wav";
    ASSERT_EQ(
        run_quillmidi("--render " + quoted(faded) + " --loops 1 --fade 3 " + quoted(song), dir)
            .exitCode,
        0);
    EXPECT_NEAR(wav_facts(faded).seconds, 1.5 + 1.0 + 3.0 + 1.5, 1.0 / 44100);
}

TEST(Headless, PlayingWithLoopsSendsTheBodyAgainAndLeavesNoNoteHanging) {
    TTempDir dir;
    auto song = dir.Write("loop.mid", looping_song());
    auto wav = dir.Path() / "song.wav";
    auto trace = dir.Path() / "trace.txt";
    TResult result = run_quillmidi("--headless --loops 2 --fade 0 --wav " + quoted(wav) +
                                       " --trace " + quoted(trace) + " " + quoted(song),
                                   dir);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::ifstream in(trace);
    std::map<std::string, int> sounding;
    int strikes62 = 0;
    int strikes60 = 0;
    for (std::string line; std::getline(in, line);) {
        const std::string event = line.substr(line.find(' ') + 3);
        if (event.rfind("90 3e", 0) == 0) ++strikes62;
        if (event.rfind("90 3c", 0) == 0) ++strikes60;
        const std::string key = event.substr(3, 2);
        if (event.rfind("90", 0) == 0 && event.substr(6) != "00")
            ++sounding[key];
        else if ((event.rfind("80", 0) == 0 || event.rfind("90", 0) == 0) && sounding[key] > 0)
            --sounding[key];
    }
    EXPECT_EQ(strikes60, 1) << "the intro plays once";
    EXPECT_EQ(strikes62, 3) << "the loop's body three times";
    for (const auto& [key, count] : sounding) EXPECT_EQ(count, 0) << "hanging: " << key;
}

}  // namespace

namespace {

// Two-port songs -------------------------------------------------------------------------

TEST(Headless, WithoutOutputsNamedPortBPlaysThroughTheBuiltInSynthesizerToo) {
    TTempDir dir;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Port(0, 1).Program(0, 0, 0).NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
    auto song = dir.Write("port-b.mid", smf.Bytes());
    auto played = dir.Path() / "played.wav";
    ASSERT_EQ(
        run_quillmidi("--headless --wav " + quoted(played) + " " + quoted(song), dir).exitCode, 0);
    EXPECT_GT(wav_facts(played).peak, 100) << "port B's note should be heard";
    auto rendered = dir.Path() / "rendered.wav";
    ASSERT_EQ(run_quillmidi("--render " + quoted(rendered) + " " + quoted(song), dir).exitCode, 0);
    EXPECT_GT(wav_facts(rendered).peak, 100) << "and rendered";
}

// The status line ------------------------------------------------------------------------

struct TTerminalRun {
    int exitCode = -1;
    std::string terminal;  // what reached the pseudo-terminal, byte for byte
    std::string out;       // standard output, when it went to a file
};

// Runs the player with standard error on a pseudo-terminal `columns` wide that passes
// bytes through unchanged; standard output goes to the same terminal or, with
// outToFile, into a file.
TTerminalRun run_on_terminal(const std::vector<std::string>& arguments, const TTempDir& dir,
                             int columns, bool outToFile) {
    TTerminalRun run;
    termios mode{};
    cfmakeraw(&mode);
    winsize size{};
    size.ws_row = 24;
    size.ws_col = uint16_t(columns);
    int master = -1, slave = -1;
    if (openpty(&master, &slave, nullptr, &mode, &size) != 0) return run;
    const std::string outPath = (dir.Path() / "stdout.txt").string();
    const int outFd = outToFile ? open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600) : slave;

    std::vector<std::string> args{QUILLMIDI_BINARY};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<std::string> env{"XDG_CONFIG_HOME=" + config_home(dir).string()};
    for (char** e = environ; *e; ++e)
        if (std::string(*e).rfind("XDG_CONFIG_HOME=", 0) != 0) env.push_back(*e);
    std::vector<char*> envp;
    for (std::string& entry : env) envp.push_back(entry.data());
    envp.push_back(nullptr);

    const pid_t child = fork();
    if (child == 0) {
        dup2(slave, STDERR_FILENO);
        dup2(outFd, STDOUT_FILENO);
        close(master);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(slave);
    if (outToFile) close(outFd);
    // Until the child's side closes (EIO), bounded so that a hang fails instead.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::array<char, 4096> buffer;
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd ready{master, POLLIN, 0};
        if (poll(&ready, 1, 1000) <= 0) continue;
        const ssize_t n = read(master, buffer.data(), buffer.size());
        if (n <= 0) break;
        run.terminal.append(buffer.data(), size_t(n));
    }
    close(master);
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status))
        run.exitCode = WEXITSTATUS(status);
    if (outToFile) {
        std::ifstream in(outPath);
        std::stringstream text;
        text << in.rdbuf();
        run.out = text.str();
    }
    return run;
}

// The drawings of the status line: what follows each carriage return, up to the next
// one or the end.
std::vector<std::string> status_drawings(const std::string& terminal) {
    std::vector<std::string> drawings;
    for (size_t at = terminal.find('\r'); at != std::string::npos;) {
        const size_t next = terminal.find('\r', at + 1);
        drawings.push_back(
            terminal.substr(at + 1, next == std::string::npos ? next : next - at - 1));
        at = next;
    }
    return drawings;
}

// One second of a note, titled.
std::filesystem::path second_long_song(const TTempDir& dir, const std::string& title) {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Name(0, title).NoteOn(0, 0, 60, 100).NoteOff(960, 0, 60);
    return dir.Write("second.mid", smf.Bytes());
}

TEST(Headless, OnATerminalOneStatusLineRewritesItselfWithSongTimeAndBar) {
    TTempDir dir;
    // One note held for three seconds: the time must move through it, not leap to the
    // note's end with the producer's position.
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Name(0, "Quiet").NoteOn(0, 0, 60, 100).NoteOff(480 * 6, 0, 60);
    const auto song = dir.Write("held.mid", smf.Bytes());
    TTerminalRun run = run_on_terminal(
        {"--headless", "--wav", (dir.Path() / "o.wav").string(), song.string()}, dir, 80, false);
    ASSERT_EQ(run.exitCode, 0) << run.terminal;
    const std::vector<std::string> drawings = status_drawings(run.terminal);
    ASSERT_GE(drawings.size(), 2u) << run.terminal;
    EXPECT_EQ(drawings.front(), "Quiet  0:00 / 0:03 [--------------------]\033[K")
        << "drawn as the song starts";
    EXPECT_EQ(drawings.back(), "Quiet  0:03 / 0:03 [####################]\033[K\n")
        << "and left whole on its line at the end";
    EXPECT_NE(
        std::find_if(drawings.begin(), drawings.end() - 1,
                     [](const std::string& d) { return d.find("Quiet  0:01 / 0:03 [") == 0; }),
        drawings.end() - 1)
        << "a second into the note";
    for (const std::string& drawing : drawings)
        EXPECT_LE(drawing.find("\033[K"), 79u) << "never wider than the terminal: " << drawing;
    EXPECT_EQ(run.terminal.find("Quiet\n"), std::string::npos)
        << "no plain title line beside the status line";
}

TEST(Headless, ANarrowTerminalCutsTheTitleAndTheBarAndPlainLinesStillGoToAFile) {
    TTempDir dir;
    // Each of the three Kanji takes two columns.
    const auto song = second_long_song(dir, "夜想曲 A Very Long Song Title");
    TTerminalRun run = run_on_terminal(
        {"--headless", "--wav", (dir.Path() / "o.wav").string(), song.string()}, dir, 30, true);
    ASSERT_EQ(run.exitCode, 0) << run.terminal;
    const std::vector<std::string> drawings = status_drawings(run.terminal);
    ASSERT_FALSE(drawings.empty()) << run.terminal;
    EXPECT_EQ(drawings.back(), "夜想曲 A Very Lo  0:01 / 0:01\033[K\n");
    const std::vector<std::string> lines = lines_of(run.out);
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "夜想曲 A Very Long Song Title"), lines.end())
        << run.out;
    EXPECT_EQ(lines.back(), "  0:01 / 0:01") << run.out;
}

TEST(Headless, WithoutATerminalThePlayerWritesPlainLines) {
    TTempDir dir;
    const auto song = second_long_song(dir, "Quiet");
    TResult result =
        run_quillmidi("--headless --wav " + quoted(dir.Path() / "o.wav") + " " + quoted(song), dir);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err.find('\r'), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find('\033'), std::string::npos) << result.err;
    const std::vector<std::string> lines = lines_of(result.out);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Quiet"), lines.end()) << result.out;
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "  0:01 / 0:01") << result.out;
}

}  // namespace

namespace {

// The first count song titles a run prints; then the run is interrupted, as a user stops a
// random mode that would play for ever. Empty when the titles did not come in time.
std::vector<std::string> first_titles(const std::vector<std::string>& arguments, size_t count,
                                      const TTempDir& dir) {
    TScopedEnv configHome("XDG_CONFIG_HOME", config_home(dir).c_str());
    std::vector<std::string> args = {QUILLMIDI_BINARY};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    int out[2];
    if (pipe(out) != 0) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
        close(out[0]);
        return {};
    }
    std::string text;
    std::vector<std::string> titles;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (titles.size() < count && std::chrono::steady_clock::now() < deadline) {
        pollfd ready{out[0], POLLIN, 0};
        if (poll(&ready, 1, 100) <= 0) continue;
        char buffer[1024];
        ssize_t n = read(out[0], buffer, sizeof buffer);
        if (n <= 0) break;
        text.append(buffer, size_t(n));
        titles = titles_in(text.substr(0, text.rfind('\n') + 1));
    }
    kill(pid, SIGINT);
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (titles.size() < count) return {};
    titles.resize(count);
    return titles;
}

}  // namespace

TEST(Headless, RandomModeDrawsAnotherOrderOnEveryRun) {
    TTempDir dir;
    std::vector<std::string> arguments = {"--headless", "--mode", "4", "--wav",
                                          (dir.Path() / "o.wav").string()};
    for (int i = 0; i < 8; ++i) {
        std::string title = "Song " + std::to_string(i);
        arguments.push_back(
            dir.Write("song" + std::to_string(i) + ".mid", titled_song(title.c_str())).string());
    }
    // Two orders of six songs out of eight agree by chance once in 7^6 (118000) runs; a
    // third run makes a false alarm about as rare as that squared.
    constexpr size_t kTitles = 6;
    std::vector<std::vector<std::string>> orders;
    bool differ = false;
    for (int run = 0; run < 3 && !differ; ++run) {
        orders.push_back(first_titles(arguments, kTitles, dir));
        ASSERT_EQ(orders.back().size(), kTitles) << "run " << run << " did not play on";
        for (size_t earlier = 0; earlier + 1 < orders.size(); ++earlier)
            if (orders[earlier] != orders.back()) differ = true;
    }
    EXPECT_TRUE(differ) << "every run played the same order, starting with "
                        << orders.front().front();
}

// A disk that fills up while the player plays: the trace and the recording of an earlier
// run stay whole, and the player says which file it could not write.
TEST(Headless, AFullDiskLeavesTheEarlierTraceAndRecordingWhole) {
    TTempDir dir;
    TSmfBuilder smf(1, 480);
    TTrackBuilder& track = smf.AddTrack();
    for (int i = 0; i < 100; ++i)
        track.NoteOn(0, 0, uint8_t(40 + i % 40), 100).NoteOff(10, 0, uint8_t(40 + i % 40));
    auto song = dir.Write("song.mid", smf.Bytes());
    const std::string oldTrace(3000, 't');
    auto trace = dir.Write("trace.txt", oldTrace);
    auto wav = dir.Write("song.wav", std::string("an earlier recording"));
    std::filesystem::create_directories(config_home(dir));
    // The player's first JACK client makes libjack's metadata database in /dev/shm, server or
    // none. Made under the file-size limit it would be cut short, and every JACK client on
    // the machine after it would die of SIGBUS: it is made here first.
    jack_status_t status;
    if (jack_client_t* client = jack_client_open("quill-test", JackNoStartServer, &status))
        jack_client_close(client);

    std::string errors;
    const int result = run_in_child(
        [&] {
            TResult run = run_quillmidi("--headless --wav " + quoted(wav) + " --trace " +
                                            quoted(trace) + " " + quoted(song),
                                        dir);
            return run.exitCode < 0 ? 200 : run.exitCode;
        },
        TChildFaults{.fileSizeLimit = 2500}, 60000);
    const std::vector<uint8_t> err = read_file_bytes(dir.Path() / "stderr.txt");
    errors.assign(err.begin(), err.end());

    EXPECT_GE(result, 0) << "the player ended by a signal";
    EXPECT_NE(result, 200) << "the player did not end normally";
    EXPECT_EQ(read_file_bytes(trace), std::vector<uint8_t>(oldTrace.begin(), oldTrace.end()));
    const std::string oldWav = "an earlier recording";
    EXPECT_EQ(read_file_bytes(wav), std::vector<uint8_t>(oldWav.begin(), oldWav.end()));
    EXPECT_NE(errors.find("cannot write " + trace.string()), std::string::npos) << errors;
}
