#include "app/headless.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "app/headless_options.h"
#include "engine/midi_out_ports.h"
#include "engine/output_chain.h"
#include "engine/prepare_sequence.h"
#include "engine/smf_producer.h"
#include "midi/backends.h"
#include "midi/recorder.h"
#include "midi/roster.h"
#include "midi/synth.h"
#include "veldan/base/clock.h"

namespace {

constexpr int64_t kProgressIntervalUs = 1000000;
constexpr int64_t kDrainTimeoutUs = 2000000;
constexpr int64_t kReleaseTailUs = 1500000;
constexpr size_t kTraceEventsPerPort = 1 << 21;

// Raised by SIGINT/SIGTERM; the main loop sleeps on it.
std::atomic<uint32_t> gInterrupted{0};

void on_interrupt(int) {
    gInterrupted.store(1);
    veldan::futex_wake(&gInterrupted, 1);  // a plain system call: safe in a handler
}

void install_interrupt_handler() {
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

std::string clock_text(int64_t us) {
    int64_t seconds = us / 1000000;
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
    return text;
}

class TDumpPrinter : public TSMFEventSink {
public:
    void Event(const TSMFEvent& e) override {
        uint8_t bytes[2] = {e.status, e.metaType};
        std::string text = hex_bytes(bytes, e.status == 0xFF ? 2 : 1);
        if (e.length) text += ' ' + hex_bytes(e.data, e.length);
        std::printf("%u %u %u %s\n", e.tick, e.track, e.port, text.c_str());
    }
};

int dump(const std::string& path) {
    TSMFProducer producer;
    if (producer.SetTo(path) != 0) {
        std::fprintf(stderr, "quillmidi: %s: %s\n", path.c_str(), producer.LastError().c_str());
        return 1;
    }
    TDumpPrinter printer;
    producer.Walk(printer);
    return 0;
}

class THeadlessPlayer {
public:
    explicit THeadlessPlayer(THeadlessOptions options) : fOptions(std::move(options)) {}
    ~THeadlessPlayer() { fProducer.Stop(); }

    int Run();
    int ListPorts();

private:
    bool ConnectOutput();
    bool ConnectByName(int port, const std::string& name);
    bool PrepareSong();
    bool SleepUnlessInterrupted(int64_t us);
    bool OpenSynth();
    void StartTrace();
    // false when the file could not be loaded.
    bool PlayFile(const std::string& path);
    void WaitForSongEnd();
    void PrintProgress(bool final);
    void Silence();
    void WriteTrace();

    void StartBackends();

    THeadlessOptions fOptions;
    // Before the chain: the systems' ports go after the producers that feed them.
    TMidiBackends fBackends;
    TSMFProducer fProducer;
    TOutputChain fChain{fProducer};
    TMidiOutPorts fPorts{fChain};
    TPrepareSequence fPrepare{fChain};
    std::unique_ptr<TSynthConsumer> fSynth;
    std::unique_ptr<TMidiRecorder> fTrace[2];
    std::atomic<uint32_t> fSongEnded{0};
    int64_t fTraceStartUs = 0;
    bool fTerminal = isatty(STDOUT_FILENO);
};

bool THeadlessPlayer::OpenSynth() {
    TSynthConsumer::TOptions options;
    options.wavPath = fOptions.wavPath;
    std::string error;
    fSynth = TSynthConsumer::Create(options, &error);
    if (!fSynth) {
        std::fprintf(stderr, "quillmidi: built-in synthesizer: %s\n", error.c_str());
        return false;
    }
    fSynth->Register();
    return true;
}

bool THeadlessPlayer::ConnectByName(int port, const std::string& name) {
    TMidiConsumer* consumer = TMidiRoster::Default().FindConsumerByName(name);
    if (!consumer) {
        std::fprintf(stderr, "quillmidi: no single MIDI consumer matches \"%s\" (see --list-ports)\n",
                     name.c_str());
        return false;
    }
    return fPorts.ConnectMidiOut(port, consumer->ID()) == 0;
}

bool THeadlessPlayer::ConnectOutput() {
    // The built-in synthesizer is the default output, the one --wav records, and a
    // consumer one may name.
    std::string synthName = TSynthConsumer::kName;
    bool named = (!fOptions.outName.empty() && synthName.find(fOptions.outName) == 0) ||
                 (!fOptions.outNameB.empty() && synthName.find(fOptions.outNameB) == 0);
    if (fOptions.outName.empty() || !fOptions.wavPath.empty() || named) {
        if (!OpenSynth()) return false;
        if (fSynth->DriverName() == TSynthConsumer::kWavDriver)
            std::printf("Rendering to %s\n", fSynth->WavPath().c_str());
    }
    if (fOptions.outName.empty()) {
        if (fPorts.ConnectMidiOut(0, fSynth->ID()) != 0) return false;
    } else if (!ConnectByName(0, fOptions.outName)) {
        return false;
    }
    return fOptions.outNameB.empty() || ConnectByName(1, fOptions.outNameB);
}

void THeadlessPlayer::StartBackends() {
    fBackends.SetProblemHandler(
        [](const std::string& problem) { std::fprintf(stderr, "quillmidi: %s\n", problem.c_str()); });
    fBackends.Start();
    std::fprintf(stderr, "%s\n", fBackends.Status().c_str());
}

int THeadlessPlayer::ListPorts() {
    StartBackends();
    // The synthesizer is listed as the real, registered consumer; what it renders while
    // listing is thrown away.
    fOptions.wavPath = std::filesystem::temp_directory_path() /
                       ("quill-list-ports-" + std::to_string(getpid()) + ".wav");
    if (!OpenSynth()) return 1;
    for (TMidiConsumer* consumer : TMidiRoster::Default().Consumers())
        std::printf("%d\t%s\n", consumer->ID(), consumer->Name().c_str());
    fSynth->Finish(0);
    std::filesystem::remove(fOptions.wavPath);
    return 0;
}

bool THeadlessPlayer::SleepUnlessInterrupted(int64_t us) {
    int64_t deadline = veldan::system_time() + us;
    while (!gInterrupted.load() && veldan::system_time() < deadline)
        veldan::futex_wait_until(&gInterrupted, 0, deadline);
    return !gInterrupted.load();
}

bool THeadlessPlayer::PrepareSong() {
    int32_t state = kStateStopped;
    while (int64_t waitUs = fPrepare.StepToPlay(&state))
        if (!SleepUnlessInterrupted(waitUs)) return false;
    return true;
}

void THeadlessPlayer::StartTrace() {
    if (fOptions.tracePath.empty()) return;
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        fTrace[port] = std::make_unique<TMidiRecorder>("trace", kTraceEventsPerPort);
        fChain.PublicOut(port)->Connect(fTrace[port].get());
    }
}

int THeadlessPlayer::Run() {
    StartBackends();
    if (!ConnectOutput()) return 1;
    StartTrace();
    fChain.SetKey(fOptions.key);
    fChain.SetVolume(fOptions.volumePercent);
    fProducer.SetTempoRate(fOptions.tempoPercent);
    TPrepareSettings prepare;
    prepare.silenceBetweenSongs = fOptions.songSilenceSeconds >= 0;
    prepare.silenceBetweenSongsUs = int64_t(std::max(fOptions.songSilenceSeconds, 0)) * 1000000;
    prepare.sendResets = fOptions.resetMask != 0;
    prepare.resetMask = fOptions.resetMask;
    prepare.silenceAfterResetsUs = int64_t(fOptions.resetSilenceMs) * 1000;
    fPrepare.SetSettings(prepare);
    fProducer.SetEndOfSongHandler([this] {
        fSongEnded.store(1);
        veldan::futex_wake(&fSongEnded, 1);
        veldan::futex_wake(&gInterrupted, 1);
    });
    install_interrupt_handler();
    int status = 0;
    for (const std::string& file : fOptions.files) {
        if (gInterrupted.load()) break;
        if (!PlayFile(file)) status = 1;
    }
    Silence();
    if (fSynth) fSynth->Finish(gInterrupted.load() ? 0 : kReleaseTailUs);
    WriteTrace();
    return gInterrupted.load() ? 130 : status;
}

bool THeadlessPlayer::PlayFile(const std::string& path) {
    if (fProducer.SetTo(path) != 0) {
        std::fprintf(stderr, "quillmidi: %s: %s\n", path.c_str(), fProducer.LastError().c_str());
        return false;
    }
    std::string title;
    if (fProducer.GetTitle(&title) != 0) title = path.substr(path.find_last_of('/') + 1);
    std::printf("%s\n", title.c_str());
    std::fflush(stdout);
    fSongEnded.store(0);
    if (!PrepareSong()) return true;
    fProducer.Play();
    if (fTraceStartUs == 0) {
        // Trace times count from the first song's play thread; resets sent before it
        // carry negative times.
        while (fProducer.PlayStartedUs() == 0 && fProducer.IsPlaying()) usleep(100);
        fTraceStartUs = fProducer.PlayStartedUs();
    }
    WaitForSongEnd();
    PrintProgress(true);
    fProducer.Stop();
    fChain.QuickAllNotesOff();
    return true;
}

void THeadlessPlayer::WaitForSongEnd() {
    int64_t nextProgress = veldan::system_time();
    while (!fSongEnded.load() && !gInterrupted.load()) {
        if (veldan::system_time() >= nextProgress) {
            PrintProgress(false);
            nextProgress += kProgressIntervalUs;
        }
        veldan::futex_wait_until(&gInterrupted, 0, nextProgress);
    }
}

void THeadlessPlayer::PrintProgress(bool final) {
    const TTempoMap& map = fProducer.TempoMap();
    int32_t rate = fProducer.TempoRate();
    int64_t total = map.TickToUs(fProducer.CountTicks(), rate);
    int64_t now = final && fSongEnded.load() ? total : map.TickToUs(fProducer.CurrentTick(), rate);
    std::string line = "  " + clock_text(now) + " / " + clock_text(total);
    if (fTerminal)
        std::printf("\r%s%s", line.c_str(), final ? "\n" : "");
    else if (final || (now / 1000000) % 10 == 0)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void THeadlessPlayer::Silence() {
    fProducer.Stop();
    fChain.QuickAllNotesOff();
    // Interrupted, the user wants quiet at once: sustain pedals and release tails too.
    if (gInterrupted.load()) fPorts.MuteAllMidiOut();
    fChain.WaitIdle(kDrainTimeoutUs);
    if (fSynth) fSynth->WaitIdle(kDrainTimeoutUs);
}

void THeadlessPlayer::WriteTrace() {
    if (fOptions.tracePath.empty()) return;
    struct TLine {
        int64_t us;
        char port;
        std::string bytes;
    };
    std::vector<TLine> lines;
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        TMidiRecorder& recorder = *fTrace[port];
        recorder.WaitIdle(kDrainTimeoutUs);
        for (const TMidiRecorder::TEntry& entry : recorder.Entries())
            lines.push_back({entry.arrivalUs - fTraceStartUs, char('A' + port),
                             hex_bytes(recorder.BytesOf(entry), entry.length)});
        if (recorder.Dropped())
            std::fprintf(stderr, "quillmidi: trace: %llu events of port %c did not fit\n",
                         static_cast<unsigned long long>(recorder.Dropped()), 'A' + port);
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const TLine& a, const TLine& b) { return a.us < b.us; });
    std::ofstream out(fOptions.tracePath);
    for (const TLine& line : lines) out << line.us << ' ' << line.port << ' ' << line.bytes << '\n';
    if (!out) std::fprintf(stderr, "quillmidi: cannot write %s\n", fOptions.tracePath.c_str());
}

}  // namespace

int run_headless(int argc, char** argv) {
    THeadlessOptions options;
    std::string error;
    if (!parse_headless_options(argc, argv, &options, &error)) {
        std::fprintf(stderr, "quillmidi: %s\n%s", error.c_str(), kHeadlessUsage);
        return 2;
    }
    if (options.help) {
        std::fputs(kHeadlessUsage, stdout);
        return 0;
    }
    if (options.dump) return dump(options.files.front());
    bool listPorts = options.listPorts;
    THeadlessPlayer player(std::move(options));
    return listPorts ? player.ListPorts() : player.Run();
}
