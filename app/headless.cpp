#include "app/headless.h"

#include <unistd.h>

#include <QApplication>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "app/headless_options.h"
#include "app/interrupt.h"
#include "app/settings/settings.h"
#include "engine/offline_render.h"
#include "engine/smf_producer.h"
#include "midi/backends.h"
#include "midi/recorder.h"
#include "midi/roster.h"
#include "midi/synth.h"
#include "player/quill_view.h"
#include "player/resources.h"
#include "playlist/ai_selector.h"
#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "veldan/base/atomic_file.h"
#include "veldan/base/clock.h"
#include "veldan/core/entry.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;
using quill::TQuillView;

namespace {

constexpr int kProgressIntervalMs = 1000;
constexpr int64_t kDrainTimeoutUs = 2000000;
constexpr int64_t kReleaseTailUs = 1500000;
constexpr size_t kTraceEventsPerPort = 1 << 21;
constexpr int kExitInterrupted = 130;

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
    const int64_t lengthUs = producer.TempoMap().TickToUs(producer.CountTicks(), render.tempoPercent);
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

// Plays through the same controller as the window, on the offscreen platform: the play
// modes, the preparing sequence and the playlists behave as they do there.
class THeadlessPlayer {
  public:
    explicit THeadlessPlayer(THeadlessOptions options) : fOptions(std::move(options)) {}

    // Needs a QApplication.
    int Run();
    int ListPorts();

  private:
    void StartBackends();
    bool OpenSynth();
    bool ConnectOutput();
    bool ConnectByName(int port, const std::string& name);
    void ApplyOptionsToPrefs();
    void MakeView();
    bool AddFiles();
    void StartTrace();
    void Start();
    void PlayFrom(int32_t index);
    void StateChanged(int32_t state);
    void SongStarted();
    void CheckStopped();
    void PrintProgress(bool final);
    void Finish(bool interrupted);
    void WriteTrace();

    THeadlessOptions fOptions;
    // Before the view: the systems' ports go after the producers that feed them.
    TMidiBackends fBackends;
    TPref fPrefs;
    veldan::TLLT fTexts;  // the built-in language: the terminal's texts are English
    std::unique_ptr<TQuillView> fView;
    std::unique_ptr<TSynthConsumer> fSynth;
    std::unique_ptr<TMidiRecorder> fTrace[2];
    QObject fContext;
    QTimer fProgress;
    int32_t fLastState = kStateStopped;
    int32_t fFailedInRow = 0;
    int64_t fSongTotalUs = 0;
    int64_t fTraceStartUs = 0;
    int fStatus = 0;
    bool fFinished = false;
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
    return fView->Ports().ConnectMidiOut(port, consumer->ID()) == 0;
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
        if (fView->Ports().ConnectMidiOut(0, fSynth->ID()) != 0) return false;
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
    fOptions.wavPath = fs::temp_directory_path() /
                       ("quill-list-ports-" + std::to_string(getpid()) + ".wav");
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
    if (fOptions.resetSilenceMs >= 0) fPrefs.silenceAfterResetsUs = fOptions.resetSilenceMs * 1000LL;
    if (fOptions.songSilenceSeconds >= 0) {
        fPrefs.waitBetweenSongs = true;
        fPrefs.silenceBetweenSongsUs = fOptions.songSilenceSeconds * 1000000LL;
    }
    // The files play in the order given.
    fPrefs.autoSortKind = TPref::kSortNone;
}

void THeadlessPlayer::MakeView() {
    quill::init_resources();
    fTexts.LoadResource(QString::fromUtf8(quill::kBuiltinLanguagePath));
    fView = std::make_unique<TQuillView>(fTexts, fPrefs);
    TOrvickView* list = fView->OrvickView();
    list->SetAutoSortKind(fPrefs.autoSortKind);
    // What the window shows in its status bar goes to the terminal.
    auto report = [this](const std::string& text) {
        std::fprintf(stderr, "quillmidi: %s\n", text.c_str());
    };
    list->SetStatusFn(report);
    list->SetFailureFn(report);
    fView->SetPlayMode(fOptions.playMode);
    fView->SetStateHandler([this](int32_t state) { StateChanged(state); });
    fView->Chain().SetKey(fOptions.key);
    fView->Chain().SetVolume(fOptions.volumePercent);
    fView->Producer().SetTempoRate(fOptions.tempoPercent);
    if (fs::path database; fPrefs.useAIDatabase && TAISelector::DatabaseEntry(&database))
        fView->AISelector().Load(database);
}

bool THeadlessPlayer::AddFiles() {
    TOrvickView* list = fView->OrvickView();
    list->AddNewList(nullptr);
    bool allAdded = true;
    for (const std::string& file : fOptions.files)
        if (!list->AddListFolderFileToTopLevel(veldan::ref_for_path(file))) allAdded = false;
    return allAdded;
}

void THeadlessPlayer::StartTrace() {
    if (fOptions.tracePath.empty()) return;
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        fTrace[port] = std::make_unique<TMidiRecorder>("trace", kTraceEventsPerPort);
        fView->Chain().PublicOut(port)->Connect(fTrace[port].get());
    }
}

int THeadlessPlayer::Run() {
    StartBackends();
    ApplyOptionsToPrefs();
    MakeView();
    if (!ConnectOutput()) return 1;
    if (!AddFiles()) fStatus = 1;
    if (fView->OrvickView()->Songs() == 0) {
        std::fprintf(stderr, "quillmidi: nothing to play\n");
        return 1;
    }
    StartTrace();
    fProgress.setInterval(kProgressIntervalMs);
    QObject::connect(&fProgress, &QTimer::timeout, &fContext, [this] { PrintProgress(false); });
    call_on_interrupt(&fContext, [this] { Finish(true); });
    QTimer::singleShot(0, &fContext, [this] { Start(); });
    return QApplication::exec();
}

void THeadlessPlayer::Start() {
    // The random modes choose the first song too.
    int32_t index = 0;
    int32_t mode = fView->PlayMode();
    if (mode == quill::kPlayModeRandom || mode == quill::kPlayModeAIRandom)
        fView->GetNextSongIdx(false, &index);
    PlayFrom(index);
}

void THeadlessPlayer::PlayFrom(int32_t index) {
    if (fView->ChangeSong(index, false) && fView->PlaySong()) return;
    // Stopped already, so the state handler hears nothing of the failure.
    QTimer::singleShot(0, &fContext, [this] { CheckStopped(); });
}

void THeadlessPlayer::StateChanged(int32_t state) {
    if (state == kStatePlaying && fTraceStartUs == 0) {
        // Trace times count from the first song's start; resets sent before it carry
        // negative times.
        fTraceStartUs = veldan::system_time();
    }
    if (fLastState == kStatePlaying && state != kStatePaused) PrintProgress(true);
    if (fLastState == kStateStopped && state != kStateStopped) SongStarted();
    if (state == kStatePlaying) fProgress.start();
    else fProgress.stop();
    fLastState = state;
    // Between two songs the state passes through stopped; only a stop that lasts counts.
    if (state == kStateStopped) QTimer::singleShot(0, &fContext, [this] { CheckStopped(); });
}

void THeadlessPlayer::SongStarted() {
    fFailedInRow = 0;
    fSongTotalUs = fView->SongLengthUs();
    std::string title = fView->SongTitle();
    if (title.empty()) title = fView->OrvickView()->Song(fView->CurSongIdx())->FileName();
    std::printf("%s\n", title.c_str());
    std::fflush(stdout);
}

void THeadlessPlayer::CheckStopped() {
    if (fFinished || fView->State() != kStateStopped) return;
    // A song that could not be loaded stops the player, as in the window; here nobody is
    // there to press next, so the next song is tried, each song at most once in a row.
    const std::string& error = fView->Producer().LastError();
    const TQuillSItem* song = fView->OrvickView()->Song(fView->CurSongIdx());
    if (error.empty() || !song) {
        Finish(false);
        return;
    }
    std::fprintf(stderr, "quillmidi: %s: %s\n", song->EntryRef().c_str(), error.c_str());
    fStatus = 1;
    int32_t index = fView->CurSongIdx();
    int32_t songs = fView->OrvickView()->Songs();
    if (++fFailedInRow >= songs || !fView->GetNextSongIdx(true, &index)) {
        Finish(false);
        return;
    }
    PlayFrom(quill::fold_song_idx(index, songs));
}

void THeadlessPlayer::PrintProgress(bool final) {
    int64_t now = fView->PositionUs();
    // At a song's end the producer may already be unloaded.
    if (final && !fFinished) now = fSongTotalUs;
    std::string line = "  " + clock_text(now) + " / " + clock_text(fSongTotalUs);
    if (fTerminal)
        std::printf("\r%s%s", line.c_str(), final ? "\n" : "");
    else if (final || (now / 1000000) % 10 == 0)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void THeadlessPlayer::Finish(bool interrupted) {
    if (fFinished) return;
    fFinished = true;
    if (interrupted && fView->State() == kStatePlaying) PrintProgress(true);
    fView->SetStateHandler(nullptr);
    fView->StopSong();
    // Interrupted, the user wants quiet at once: sustain pedals and release tails too.
    if (interrupted) fView->Ports().MuteAllMidiOut();
    fView->Chain().WaitIdle(kDrainTimeoutUs);
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
    // The controller is a widget; no window is ever shown.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    app_privacy();
    exit_state();
    language_table();
    pref();
    QApplication app(argc, argv);
    QApplication::setApplicationName("Quill MIDI");
    THeadlessPlayer player(std::move(options));
    return player.Run();
}
