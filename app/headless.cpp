#include "app/headless.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "app/first_sound.h"
#include "app/headless_options.h"
#include "app/interrupt.h"
#include "app/settings/settings.h"
#include "engine/offline_render.h"
#include "engine/smf_producer.h"
#include "midi/backends.h"
#include "midi/recorder.h"
#include "midi/roster.h"
#include "midi/synth.h"
#include "player/quill_controller.h"
#include "player/readout.h"
#include "player/resources.h"
#include "playlist/song_queue.h"
#include "veldan/base/atomic_file.h"
#include "veldan/base/clock.h"
#include "veldan/core/entry.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;
using quill::TQuillController;

namespace {

constexpr int kProgressIntervalMs = 1000;
constexpr int64_t kDrainTimeoutUs = 2000000;
constexpr int64_t kReleaseTailUs = 1500000;
constexpr size_t kTraceEventsPerPort = 1 << 21;
constexpr int kExitInterrupted = 130;

constexpr int kStatusIntervalMs = 250;
constexpr int kDefaultColumns = 80;
constexpr int kBarCells = 20;

// Columns a code point takes in a terminal: East Asian wide characters two, combining
// marks none. Decided here rather than by wcwidth(), which needs a UTF-8 locale that a
// terminal player may not be started with.
int columns_of(char32_t c) {
    if (c >= 0x300 && c <= 0x36F) return 0;
    if ((c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF) ||
        (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) ||
        (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60) ||
        (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1FAFF) || c >= 0x20000)
        return 2;
    return 1;
}

// The longest start of a UTF-8 text that fits in columns, cut between characters, with
// control characters left out: a title's line break or escape would break the line.
std::string fit_columns(const std::string& text, int columns) {
    std::string fitted;
    int used = 0;
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const size_t length = std::min<size_t>(lead < 0x80    ? 1
                                               : lead >= 0xF0 ? 4
                                               : lead >= 0xE0 ? 3
                                               : lead >= 0xC0 ? 2
                                                              : 1,
                                               text.size() - i);
        char32_t c = length == 1 ? lead : lead & (0x7F >> length);
        for (size_t k = 1; k < length; ++k)
            c = c << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        if (c >= 0x20 && c != 0x7F) {
            const int width = columns_of(c);
            if (used + width > columns) break;
            used += width;
            fitted.append(text, i, length);
        }
        i += length;
    }
    return fitted;
}

int terminal_columns(int fd) {
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return kDefaultColumns;
}

// "Song  1:23 / 3:45 [#####---------------]", no wider than columns - 1 so that the
// terminal never wraps it (a wrapped line cannot be rewritten in place). The song's name
// gives way first, then the bar.
std::string status_line(const std::string& song, int64_t elapsedUs, int64_t totalUs, int columns) {
    const std::string time = quill::elapsed_total_text(elapsedUs, totalUs);
    int filled =
        totalUs > 0 ? int(std::clamp<int64_t>(elapsedUs, 0, totalUs) * kBarCells / totalUs) : 0;
    const std::string bar =
        "[" + std::string(size_t(filled), '#') + std::string(size_t(kBarCells - filled), '-') + "]";
    const int room = columns - 1;
    std::string tail = "  " + time + " " + bar;
    if (int(tail.size()) > room) tail = "  " + time;
    return fit_columns(song, room - int(tail.size())) + tail;
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

// False, with the file and the reason on standard error, when the song can't be loaded.
bool load_song(TSMFProducer* producer, const std::string& path) {
    if (producer->SetTo(path) == 0) return true;
    std::fprintf(stderr, "quillmidi: %s: %s\n", path.c_str(), producer->LastError().c_str());
    return false;
}

int render(const THeadlessOptions& options) {
    const std::string& path = options.files.front();
    TSMFProducer producer;
    if (!load_song(&producer, path)) return 1;
    TRenderOptions render;
    render.tempoPercent = options.tempoPercent;
    render.key = options.key;
    render.volumePercent = options.volumePercent;
    // Rendering reads no preferences: the loops only when asked for.
    TLoopSettings loops;
    loops.on = options.loopTimes > 0;
    if (options.loopTimes > 0) loops.times = options.loopTimes;
    if (options.fadeSeconds >= 0) loops.fadeSeconds = options.fadeSeconds;
    producer.SetLoopSettings(loops);
    const bool terminal = isatty(STDOUT_FILENO);
    auto progress = [terminal](int64_t doneUs, int64_t totalUs) {
        if (terminal && totalUs > 0) {
            std::printf("\rRendering %3d %%", int(doneUs * 100 / totalUs));
            std::fflush(stdout);
        }
        return true;
    };
    std::string error;
    if (render_song(producer, options.renderPath, render, progress, &error) != 0) {
        std::fprintf(stderr, "%squillmidi: %s\n", terminal ? "\n" : "", error.c_str());
        return 1;
    }
    const int64_t lengthUs =
        producer.PlayedTickToUs(producer.CountPlayedTicks(), render.tempoPercent);
    std::printf("%sRendered %s (%s)\n", terminal ? "\r" : "", options.renderPath.c_str(),
                clock_text(lengthUs).c_str());
    return 0;
}

int dump(const std::string& path) {
    TSMFProducer producer;
    if (!load_song(&producer, path)) return 1;
    TDumpPrinter printer;
    producer.Walk(printer);
    return 0;
}

// Plays through the same controller as the window, without a widget: the play modes, the
// preparing sequence and the playlists behave as they do there.
class THeadlessPlayer {
  public:
    explicit THeadlessPlayer(THeadlessOptions options) : fOptions(std::move(options)) {}

    // Needs a QCoreApplication.
    int Run();
    int ListPorts();

  private:
    void StartBackends();
    bool OpenSynth();
    bool ConnectOutput();
    bool ConnectByName(int port, const std::string& name);
    void ApplyOptionsToPrefs();
    void MakePlayer();
    bool AddFiles();
    void StartTrace();
    void Start();
    void PlayFrom(int32_t index);
    void StateChanged(TMarnelState state);
    void SongStarted();
    void CheckStopped();
    void PrintProgress(bool final);
    void TakeTraceOrigin();
    void DrawStatusLine(int64_t nowUs, bool final);
    void ClearStatusLine();
    void Finish(bool interrupted);
    void WriteTrace();

    THeadlessOptions fOptions;
    // Before the view: the systems' ports go after the producers that feed them.
    TMidiBackends fBackends;
    TPref fPrefs;
    veldan::TLLT fTexts;  // the built-in language: the terminal's texts are English
    std::unique_ptr<TSongQueue> fSongs;
    std::unique_ptr<TQuillController> fPlayer;
    std::unique_ptr<TSynthConsumer> fSynth;
    std::unique_ptr<TMidiRecorder> fTrace[2];
    QObject fContext;
    QTimer fProgress;
    QMetaObject::Connection fStateWatch;
    TMarnelState fLastState = kStateStopped;
    int64_t fSongTotalUs = 0;
    int64_t fTraceStartUs = 0;
    bool fTraceOriginTaken = false;
    int fStatus = 0;
    bool fFinished = false;
    bool fTerminal = isatty(STDOUT_FILENO);
    // On a terminal, standard error carries one status line that rewrites itself; plain
    // lines still go to standard output when it is not that terminal (a file, a pipe).
    bool fStatusLine = isatty(STDERR_FILENO);
    bool fPlain = !fStatusLine || !fTerminal;
    bool fStatusShown = false;
    std::string fSongName;
    int64_t fLastPlainSecond = -1;
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
        std::fprintf(stderr,
                     "quillmidi: no single MIDI consumer matches \"%s\" (see --list-ports)\n",
                     name.c_str());
        return false;
    }
    return fPlayer->ConnectMidiOut(port, consumer->ID()) == 0;
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
        if (fPlayer->ConnectMidiOut(0, fSynth->ID()) != 0) return false;
        // Port B too, on the synthesizer's channels 17-32: two-port songs are whole.
        if (fOptions.outNameB.empty() && fPlayer->ConnectMidiOut(1, fSynth->ID()) != 0)
            return false;
    } else if (!ConnectByName(0, fOptions.outName)) {
        return false;
    }
    return fOptions.outNameB.empty() || ConnectByName(1, fOptions.outNameB);
}

void THeadlessPlayer::StartBackends() {
    fBackends.SetProblemHandler([](const std::string& problem) {
        std::fprintf(stderr, "quillmidi: %s\n", problem.c_str());
    });
    fBackends.Start();
    std::fprintf(stderr, "%s\n", fBackends.Status().c_str());
}

int THeadlessPlayer::ListPorts() {
    StartBackends();
    // The synthesizer is listed as the real, registered consumer; what it renders while
    // listing is thrown away.
    fOptions.wavPath =
        fs::temp_directory_path() / ("quill-list-ports-" + std::to_string(getpid()) + ".wav");
    if (!OpenSynth()) return 1;
    for (TMidiConsumer* consumer : TMidiRoster::Default().Consumers())
        std::printf("%d\t%s\n", consumer->ID(), consumer->Name().c_str());
    fSynth->Finish(0);
    fs::remove(fOptions.wavPath);
    return 0;
}

void THeadlessPlayer::ApplyOptionsToPrefs() {
    load_global();
    fPrefs = pref();
    if (fOptions.resetMask >= 0) {
        fPrefs.sendSysResets = fOptions.resetMask != 0;
        fPrefs.sysResetCombination = fOptions.resetMask;
    }
    if (fOptions.resetSilenceMs >= 0)
        fPrefs.silenceAfterResetsUs = fOptions.resetSilenceMs * 1000LL;
    if (fOptions.songSilenceSeconds >= 0) {
        fPrefs.waitBetweenSongs = true;
        fPrefs.silenceBetweenSongsUs = fOptions.songSilenceSeconds * 1000000LL;
    }
    if (fOptions.loopTimes > 0) {
        fPrefs.loops.on = true;
        fPrefs.loops.times = fOptions.loopTimes;
    }
    if (fOptions.fadeSeconds >= 0) fPrefs.loops.fadeSeconds = fOptions.fadeSeconds;
}

void THeadlessPlayer::MakePlayer() {
    quill::init_resources();
    fTexts.LoadResource(QString::fromUtf8(quill::kBuiltinLanguagePath));
    fSongs = std::make_unique<TSongQueue>(fTexts);
    fPlayer = std::make_unique<TQuillController>(fPrefs, *fSongs);
    // What the window shows in its status bar goes to the terminal.
    fSongs->SetStatusFn([this](const std::string& text) {
        ClearStatusLine();
        std::fprintf(stderr, "quillmidi: %s\n", text.c_str());
    });
    fPlayer->SetPlayMode(fOptions.playMode);
    fStateWatch = QObject::connect(fPlayer.get(), &quill::TQuillController::StateChanged, &fContext,
                                   [this](TMarnelState state) { StateChanged(state); });
    // The player passes over a song it cannot load; the terminal hears the whole path.
    QObject::connect(fPlayer.get(), &quill::TQuillController::CannotPlay, &fContext,
                     [this](const fs::path& song, const std::string& reason) {
                         ClearStatusLine();
                         std::fprintf(stderr, "quillmidi: %s: %s\n", song.c_str(), reason.c_str());
                         fStatus = 1;
                     });
    fPlayer->SetKey(fOptions.key);
    fPlayer->SetVolume(fOptions.volumePercent);
    fPlayer->SetTempoRate(fOptions.tempoPercent);
    fPlayer->LoadLearnedScores();
}

bool THeadlessPlayer::AddFiles() {
    bool allAdded = true;
    for (const std::string& file : fOptions.files)
        if (!fSongs->Add(veldan::ref_for_path(file))) allAdded = false;
    return allAdded;
}

void THeadlessPlayer::StartTrace() {
    if (fOptions.tracePath.empty()) return;
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        fTrace[port] = std::make_unique<TMidiRecorder>("trace", kTraceEventsPerPort);
        fPlayer->ConnectOutput(port, fTrace[port].get());
    }
}

int THeadlessPlayer::Run() {
    StartBackends();
    ApplyOptionsToPrefs();
    MakePlayer();
    if (!ConnectOutput()) return 1;
    watch_first_sound(&fContext, [this] { return fSynth.get(); });
    if (!AddFiles()) fStatus = 1;
    if (fSongs->Songs() == 0) {
        std::fprintf(stderr, "quillmidi: nothing to play\n");
        return 1;
    }
    StartTrace();
    fProgress.setInterval(fStatusLine ? kStatusIntervalMs : kProgressIntervalMs);
    QObject::connect(&fProgress, &QTimer::timeout, &fContext, [this] { PrintProgress(false); });
    call_on_interrupt(&fContext, [this] { Finish(true); });
    QTimer::singleShot(0, &fContext, [this] { Start(); });
    return QCoreApplication::exec();
}

void THeadlessPlayer::Start() {
    // The random modes choose the first song too.
    int32_t index = 0;
    int32_t mode = fPlayer->PlayMode();
    if (mode == quill::kPlayModeRandom || mode == quill::kPlayModeAIRandom)
        fPlayer->GetNextSongIdx(false, &index);
    PlayFrom(index);
}

void THeadlessPlayer::PlayFrom(int32_t index) {
    if (fPlayer->PlaySongAt(index)) return;
    // Stopped already, so the state handler hears nothing of the failure.
    QTimer::singleShot(0, &fContext, [this] { CheckStopped(); });
}

void THeadlessPlayer::StateChanged(TMarnelState state) {
    if (state == kStatePlaying && fTraceStartUs == 0) {
        // Until the play thread reports its start (TakeTraceOrigin); resets sent before
        // it carry negative times.
        fTraceStartUs = veldan::system_time();
    }
    if (fLastState == kStatePlaying && state != kStatePaused) PrintProgress(true);
    if (fLastState == kStateStopped && state != kStateStopped) SongStarted();
    if (state == kStatePlaying)
        fProgress.start();
    else
        fProgress.stop();
    fLastState = state;
    // Between two songs the state passes through stopped; only a stop that lasts counts.
    if (state == kStateStopped) QTimer::singleShot(0, &fContext, [this] { CheckStopped(); });
}

void THeadlessPlayer::SongStarted() {
    fSongTotalUs = fPlayer->SongLengthUs();
    std::string title = fPlayer->SongTitle();
    if (title.empty()) title = fSongs->SongFileName(fPlayer->CurSongIdx());
    fSongName = title;
    fLastPlainSecond = -1;
    if (fPlain) {
        std::printf("%s\n", title.c_str());
        std::fflush(stdout);
    }
    if (fStatusLine) DrawStatusLine(0, false);
}

void THeadlessPlayer::CheckStopped() {
    // The player itself goes on past songs that cannot be loaded; stopped, none is left.
    if (!fFinished && fPlayer->State() == kStateStopped) Finish(false);
}

// Trace times count from the first song's start as the play thread keeps it, the time its
// first tick was due, so that an event's trace time less its ideal time is its lateness.
// The state change that announces playing comes before that thread exists, by the time it
// takes to start one: milliseconds on a busy machine, which every trace time would carry.
// Read on each progress tick and when the song stops playing, while the producer still
// holds the first song's start.
void THeadlessPlayer::TakeTraceOrigin() {
    if (fTraceOriginTaken || fTraceStartUs == 0) return;
    const int64_t startedUs = fPlayer->PlayThreadStartedUs();
    if (startedUs < fTraceStartUs) return;  // not started yet
    fTraceStartUs = startedUs;
    fTraceOriginTaken = true;
}

void THeadlessPlayer::PrintProgress(bool final) {
    TakeTraceOrigin();
    int64_t now = fPlayer->PositionUs();
    // At a song's end the producer may already be unloaded.
    if (final && !fFinished) now = fSongTotalUs;
    if (fStatusLine) DrawStatusLine(now, final);
    if (!fPlain) return;
    // The status line comes more often than the plain lines' once a second.
    if (!final && now / 1000000 == fLastPlainSecond) return;
    fLastPlainSecond = now / 1000000;
    std::string line = "  " + clock_text(now) + " / " + clock_text(fSongTotalUs);
    if (fTerminal)
        std::printf("\r%s%s", line.c_str(), final ? "\n" : "");
    else if (final || (now / 1000000) % 10 == 0)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void THeadlessPlayer::DrawStatusLine(int64_t nowUs, bool final) {
    const std::string line =
        status_line(fSongName, nowUs, fSongTotalUs, terminal_columns(STDERR_FILENO));
    // Erasing to the end of the line after it takes away what a longer line left.
    std::fprintf(stderr, "\r%s\033[K%s", line.c_str(), final ? "\n" : "");
    std::fflush(stderr);
    fStatusShown = !final;
}

// Before another message on standard error, so that it starts on a line of its own; the
// next tick draws the status line again below it.
void THeadlessPlayer::ClearStatusLine() {
    if (!fStatusShown) return;
    std::fputs("\r\033[K", stderr);
    fStatusShown = false;
}

void THeadlessPlayer::Finish(bool interrupted) {
    if (fFinished) return;
    fFinished = true;
    if (interrupted && fPlayer->State() == kStatePlaying) PrintProgress(true);
    ClearStatusLine();
    QObject::disconnect(fStateWatch);
    fPlayer->StopSong();
    // Interrupted, the user wants quiet at once: sustain pedals and release tails too.
    if (interrupted) fPlayer->MuteAllMidiOut();
    fPlayer->WaitOutputIdle(kDrainTimeoutUs);
    if (fSynth) {
        fSynth->WaitIdle(kDrainTimeoutUs);
        fSynth->Finish(interrupted ? 0 : kReleaseTailUs);
    }
    WriteTrace();
    QCoreApplication::exit(interrupted ? kExitInterrupted : fStatus);
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
    std::string text;
    for (const TLine& line : lines)
        text += std::to_string(line.us) + ' ' + line.port + ' ' + line.bytes + '\n';
    std::string error;
    if (veldan::write_file_atomically(fOptions.tracePath, text, &error) != 0)
        std::fprintf(stderr, "quillmidi: %s\n", error.c_str());
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
    if (!options.renderPath.empty()) return render(options);
    if (options.listPorts) return THeadlessPlayer(std::move(options)).ListPorts();
    app_privacy();
    exit_state();
    language_table();
    pref();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("Quill MIDI");
    THeadlessPlayer player(std::move(options));
    return player.Run();
}
