#include "player/quill_controller.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "midi/roster.h"
#include "player/control_messages.h"
#include "player/pref.h"
#include "playlist/song_list.h"
#include "veldan/base/clock.h"
#include "veldan/base/random.h"

namespace quill {

namespace {

// A timer interval in milliseconds, never shorter than the silence asked for.
int silence_ms(int64_t us) { return int((us + 999) / 1000); }

// The roster calls its watchers on whichever thread changed it, possibly while the view
// is being destroyed; the watcher posts through this guard, which the view empties first.
class TPostGuard {
  public:
    explicit TPostGuard(QObject* target) : fTarget(target) {}
    void Post(const veldan::TMessage& message) {
        std::lock_guard lock(fLock);
        if (fTarget) veldan::post_message(fTarget, message);
    }
    void Close() {
        std::lock_guard lock(fLock);
        fTarget = nullptr;
    }

  private:
    std::mutex fLock;
    QObject* fTarget;
};

}  // namespace

TQuillController::TQuillController(const TPref& prefs, TSongList& songs, QObject* parent)
    : veldan::THandler(parent),
      fPrefs(prefs),
      fPlaylist(&songs),
      fClock(veldan::system_time),
      fRandom(veldan::seeded_random()) {
    fSelector.SetSongList(fPlaylist);
    fSelector.SetRandom(fRandom);

    fSilenceTimer.setSingleShot(true);
    // A coarse timer may fire 5 % early, and a silence must be at least what was asked.
    fSilenceTimer.setTimerType(Qt::PreciseTimer);
    connect(&fSilenceTimer, &QTimer::timeout, this, [this] { SilenceEndedRqtd(); });
    fPrepare.SetResetSentHandler([this](int32_t kind) { Q_EMIT ResetSent(kind); });
    fProducer.SetEndOfSongHandler([this] { PostFromPlayThread(); });
    fPosTimer.setInterval(kPosRefreshMs);
    connect(&fPosTimer, &QTimer::timeout, this, [this] {
        UpdatePosCompo();
        TellSysResetsSeen();
    });
    auto guard = std::make_shared<TPostGuard>(this);
    fRosterGuard = guard;
    fRosterWatch = TMidiRoster::Default().AddWatcher(
        [guard] { guard->Post(veldan::TMessage(kMsgMidiRosterChanged)); });
    fProducer.SetChase(prefs.chaseOnSeek);
    ApplyLoopPrefs();
}

TQuillController::~TQuillController() {
    TMidiRoster::Default().RemoveWatcher(fRosterWatch);
    std::static_pointer_cast<TPostGuard>(fRosterGuard)->Close();
    // No thread may post here once the controller is gone: the play thread ends with Stop.
    fProducer.Stop();
}

void TQuillController::LoadLearnedScores() {
    if (std::filesystem::path database;
        fPrefs.useAIDatabase && TAISelector::DatabaseEntry(&database))
        fSelector.Load(database);
}

int32_t TQuillController::SaveLearnedScores(std::string* error,
                                            std::filesystem::path* database) const {
    if (!fPrefs.useAIDatabase || !TAISelector::DatabaseEntry(database)) return 0;
    return fSelector.Save(*database, error);
}

void TQuillController::PostFromPlayThread() {
    veldan::TMessage ended(kMsgPlaySongEnded);
    ended.AddInt32(kSongSerialField, fSongSerial.load(std::memory_order_relaxed));
    veldan::post_message(this, ended);
}

void TQuillController::SetRandom(TRandomFn random) {
    fRandom = std::move(random);
    fSelector.SetRandom(fRandom);
}

int32_t TQuillController::CurSongIdx() const { return fPlaylist->CurSongIdx(); }

void TQuillController::SetState(TMarnelState state) {
    const bool wasPlaying = fState == kStatePlaying;
    fState = state;
    if (state == kStatePlaying) {
        fPosTimer.start();
    } else {
        fPosTimer.stop();
        // The timer's last look: a song shorter than its interval still lights its resets.
        if (wasPlaying) TellSysResetsSeen();
    }
    // Stopped or preparing, the song starts from its beginning; paused, it goes on from
    // where it stands.
    UpdatePosCompo();
    Q_EMIT StateChanged(state);
}

// Transport ------------------------------------------------------------------------------

bool TQuillController::PlaySong() {
    if (fPlaylist->Songs() == 0 || fProducer.CountTracks() == 0) return false;
    // During a silence only its end moves on: a second play would cut it short, and a
    // synthesizer still busy with its reset would lose the song's first notes.
    if (fState == kStateStopped || (IsPreparing() && !fSilenceTimer.isActive())) StepStateToPlay();
    UpdateTransportCompos();
    return true;
}

TPrepareSettings TQuillController::PrepareSettings() const {
    TPrepareSettings settings;
    settings.silenceBetweenSongs = fPrefs.waitBetweenSongs;
    settings.silenceBetweenSongsUs = fPrefs.silenceBetweenSongsUs;
    settings.sendResets = fPrefs.sendSysResets;
    settings.resetMask = fPrefs.sysResetCombination;
    settings.silenceAfterResetsUs = fPrefs.silenceAfterResetsUs;
    return settings;
}

void TQuillController::StepStateToPlay() {
    // The preferences may have changed since the last song; a start in progress keeps
    // the ones it began with.
    if (fState == kStateStopped) fPrepare.SetSettings(PrepareSettings());
    TMarnelState state = fState;
    int64_t waitUs = fPrepare.StepToPlay(&state);
    SetState(state);
    if (waitUs > 0)
        fSilenceTimer.start(silence_ms(waitUs));
    else if (state == kStatePlaying)
        StartMidiOut();
}

void TQuillController::SilenceEndedRqtd() {
    fSilenceTimer.stop();
    if (IsPreparing()) PlaySong();
}

void TQuillController::PauseSong() {
    if (fState == kStatePlaying) {
        fProducer.Pause();
        fChain.QuickAllNotesOff();
        // A play thread that had sent the song's last event has ended instead of pausing;
        // its report of the end comes while paused and is passed over.
        fSongEndedBeforePause = !fProducer.IsPaused();
        SetState(kStatePaused);
    } else if (fState == kStatePaused) {
        if (fSongEndedBeforePause) {
            // Resuming a thread that has ended would play silence for ever.
            fSongEndedBeforePause = false;
            SetState(kStatePlaying);
            GoOnAfterSongEnd();
            return;
        }
        StartMidiOut();
        SetState(kStatePlaying);
    }
    UpdateTransportCompos();
}

void TQuillController::StopSong() {
    if (fState != kStateStopped) {
        StopMidiOut();
        UnsetProducer();
        SetState(kStateStopped);
    }
    UpdateTransportCompos();
}

void TQuillController::StartMidiOut() {
    fProducer.Play();
    fPlayStartUs = fClock();
}

void TQuillController::StopMidiOut() {
    fSongEndedBeforePause = false;
    fSilenceTimer.stop();
    fProducer.Stop();
    fChain.QuickAllNotesOff();
}

bool TQuillController::SetProducer() {
    fSongTitle.clear();
    fLoadError.clear();
    const std::filesystem::path& song = fPlaylist->SongRef(fPlaylist->CurSongIdx());
    if (song.empty()) return false;
    fSongSerial.fetch_add(1, std::memory_order_relaxed);
    if (fProducer.SetTo(song.string()) != 0)
        fLoadError = fProducer.LastError();
    else if (fProducer.CountTracks() == 0)
        // It would load and then refuse to play without a word.
        fLoadError = "the file has no tracks";
    if (!fLoadError.empty()) {
        // Tracks read before the failure would otherwise stay.
        UnsetProducer();
        return false;
    }
    fProducer.GetTitle(&fSongTitle);
    Q_EMIT SongChanged();
    return true;
}

void TQuillController::UnsetProducer() {
    fProducer.Unset();
    Q_EMIT SongChanged();
}

bool TQuillController::LoadSong(int32_t index) {
    StopMidiOut();
    UnsetProducer();
    MarkNowPlaying(false);
    fPlaylist->SetCurSongIdx(index);
    const bool loaded = SetProducer();
    ExpSongTitle();
    if (!loaded) {
        ShowCannotPlay();
        return false;
    }
    MarkNowPlaying(true);
    Q_EMIT ResetsCleared();
    // What the songs before left unread is theirs, not this one's.
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        fChain.NoteOnManager(port).TakeSysResets();
    return true;
}

bool TQuillController::LoadSongOnward(int32_t index, bool onward, bool forward) {
    const int32_t songs = fPlaylist->Songs();
    std::vector<bool> tried(size_t(std::max(songs, 0)), false);
    while (!LoadSong(index)) {
        if (!onward || songs <= 0) return false;
        int32_t current = fPlaylist->CurSongIdx();
        if (current >= 0 && current < songs) tried[size_t(current)] = true;
        int32_t next = current;
        // As the next button would: the single-song modes move on too.
        if (!(forward ? GetNextSongIdx(false, &next) : GetPrevSongIdx(&next))) return false;
        next = fold_song_idx(next, songs);
        if (tried[size_t(next)]) {
            // Only a random draw comes back to a song already tried while others are left:
            // the first one left after it. In the other modes every song has been tried.
            if (fPlayMode != kPlayModeRandom && fPlayMode != kPlayModeAIRandom) return false;
            auto left = std::find(tried.begin() + next, tried.end(), false);
            if (left == tried.end()) left = std::find(tried.begin(), tried.end(), false);
            if (left == tried.end()) return false;
            next = int32_t(left - tried.begin());
        }
        index = next;
    }
    return true;
}

bool TQuillController::ChangeSong(int32_t index, bool betweenSongs) {
    return ChangeSongTo(index, betweenSongs, true, false);
}

bool TQuillController::ChangeSongTo(int32_t index, bool betweenSongs, bool forward, bool play) {
    if (!LoadSongOnward(index, play || fState != kStateStopped, forward)) {
        if (fState != kStateStopped) SetState(kStateStopped);
        UpdatePosCompo();
        UpdateTransportCompos();
        UpdateDeskBarTitle();
        return false;
    }
    bool started = true;
    if (fState == kStatePlaying || IsPreparing()) {
        SetState(betweenSongs ? kStateStopped : kStateAfterSilence);
        started = PlaySong();
    } else if (play) {
        // From the start of the sequence, the silence between songs included.
        if (fState != kStateStopped) SetState(kStateStopped);
        started = PlaySong();
    }
    UpdatePosCompo();
    UpdateTransportCompos();
    UpdateDeskBarTitle();
    return started;
}

void TQuillController::ShowCannotPlay() {
    const std::filesystem::path& song = fPlaylist->SongRef(fPlaylist->CurSongIdx());
    if (!song.empty()) Q_EMIT CannotPlay(song, fLoadError);
}

// Play modes -----------------------------------------------------------------------------

TSongPick TQuillController::Pick() {
    TSongPick pick;
    pick.mode = fPlayMode;
    pick.current = fPlaylist->CurSongIdx();
    pick.songs = fPlaylist->Songs();
    if (fPlayMode == kPlayModeAIRandom)
        pick.draw = [this] { return fSelector.Select(); };
    else
        pick.draw = [this] { return int32_t(fRandom() & 0x7FFFFFFF); };
    return pick;
}

bool TQuillController::GetNextSongIdx(bool atEnd, int32_t* index) {
    return next_song_idx(Pick(), atEnd, index);
}

bool TQuillController::GetPrevSongIdx(int32_t* index) { return prev_song_idx(Pick(), index); }

void TQuillController::MoveToSong(int32_t index, bool forward) {
    ChangeSongTo(fold_song_idx(index, fPlaylist->Songs()), false, forward, false);
    ScrollToSong(fPlaylist->CurSongIdx());
}

void TQuillController::PlaySongEnded(const veldan::TMessage& message) {
    int32_t serial = -1;
    message.FindInt32(kSongSerialField, &serial);
    // The song may have been left after its end was reported and before the report came.
    if (serial != fSongSerial.load(std::memory_order_relaxed) || fState != kStatePlaying) return;
    GoOnAfterSongEnd();
}

void TQuillController::GoOnAfterSongEnd() {
    int32_t index = fPlaylist->CurSongIdx();
    if (!GetNextSongIdx(true, &index)) {
        StopSong();
        return;
    }
    ChangeSong(fold_song_idx(index, fPlaylist->Songs()), true);
    ScrollToSong(fPlaylist->CurSongIdx());
}

void TQuillController::NextSong() {
    ScoreDownCurrentSong();
    int32_t index = fPlaylist->CurSongIdx();
    if (GetNextSongIdx(false, &index)) MoveToSong(index, true);
}

void TQuillController::PrevSong() {
    int32_t index = fPlaylist->CurSongIdx();
    if (GetPrevSongIdx(&index)) MoveToSong(index, false);
}

bool TQuillController::PlaySongAt(int32_t index) {
    if (fPlaylist->Songs() == 0) return false;
    // Stop unloads the song, so play loads it. Play means going on: a song that cannot be
    // loaded gives way to the next.
    if (index != fPlaylist->CurSongIdx() || fProducer.CountTracks() == 0) {
        // The change starts the song itself, through its whole preparing sequence.
        if (!ChangeSongTo(index, false, true, true)) return false;
        ScoreUpCurrentSong();
        return true;
    }
    ScoreUpCurrentSong();
    if (fState == kStatePaused) {
        PauseSong();
        return true;
    }
    return PlaySong();
}

void TQuillController::ChangeSongRqtd(int32_t index) {
    ScoreDownCurrentSong();
    if (ChangeSong(index, false)) ScoreUpCurrentSong();
}

// Scores ---------------------------------------------------------------------------------

void TQuillController::ScoreUpCurrentSong() {
    if (fPrefs.useAIDatabase)
        fSelector.ChangeScore(fPlaylist->SongFileName(fPlaylist->CurSongIdx()), 1);
}

void TQuillController::ScoreDownCurrentSong() {
    if (!fPrefs.useAIDatabase || fState == kStateStopped) return;
    if (fClock() - fPlayStartUs > kEarlySkipUs) return;
    fSelector.ChangeScore(fPlaylist->SongFileName(fPlaylist->CurSongIdx()), -1);
}

// Menus, sliders and the chain -----------------------------------------------------------

void TQuillController::TellSysResetsSeen() {
    // The note-on managers' receive threads only raise bits: posting from there would
    // allocate and take Qt's lock while music plays.
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        const int32_t kinds = fChain.NoteOnManager(port).TakeSysResets();
        for (int32_t kind = 1; kind <= kinds; kind <<= 1)
            if (kinds & kind) Q_EMIT ResetSeen(kind);
    }
}

void TQuillController::AllNotesOffRqtd() {
    fChain.QuickAllNotesOff();
    // Also what the note tables never saw, such as notes left hanging in a synthesizer.
    fPorts.MuteAllMidiOut();
}

void TQuillController::MidiOutRqtd(const veldan::TMessage& message) {
    int32_t port = 0;
    int32_t id = 0;
    if (!message.FindInt32(kMidiPortField, &port) || !message.FindInt32(kConsumerIdField, &id))
        return;
    fPorts.ToggleMidiOut(port, id);
    UpdatePortCompos();
    TellTitleTarget(kMsgUpdateMenuMidiOut);
}

void TQuillController::PlayModeRqtd(const veldan::TMessage& message) {
    int32_t mode = kPlayModeSeq;
    if (message.FindInt32(kPlayModeField, &mode)) ChangePlayMode(mode);
}

void TQuillController::ChangePlayMode(int32_t mode) {
    SetPlayMode(mode);
    ScoreUpCurrentSong();
    TellTitleTarget(kMsgUpdateMenuPlayMode);
}

void TQuillController::SliderChangedRqtd(const veldan::TMessage& message) {
    int32_t value = 0;
    if (!message.FindInt32(kSliderValueField, &value)) return;
    switch (message.what) {
        case kMsgVolumeChanged:
            SetVolume(value);
            break;
        case kMsgKeyChanged:
            SetKey(value);
            break;
        case kMsgTempoChanged:
            SetTempoRate(value);
            break;
        case kMsgPosChanged:
            SetPositionPercent(value);
            break;
        default:
            break;
    }
}

void TQuillController::SetVolume(int32_t percent) { fChain.SetVolume(percent); }

void TQuillController::SetKey(int32_t key) {
    // The notes of the old key stop with it rather than clash with the new one. The
    // filters send every note-off where its note-on went, so nothing needs to drain
    // between the two.
    fChain.QuickAllNotesOff();
    fChain.SetKey(key);
}

void TQuillController::SetTempoRate(int32_t percent) { fProducer.SetTempoRate(percent); }

void TQuillController::SetPositionPercent(int32_t percent) {
    fChain.QuickAllNotesOff();
    fProducer.SetPlayedTick(fProducer.CountPlayedTicks() * uint32_t(percent) / 100);
    // Stopped, the producer has no place to keep a position: the thumb goes back to where
    // playing will start.
    UpdatePosCompo();
}

int32_t TQuillController::ConnectMidiOut(int port, int32_t consumerId) {
    const int32_t result = fPorts.ConnectMidiOut(port, consumerId);
    UpdatePortCompos();
    return result;
}

void TQuillController::ConnectOutput(int port, TMidiConsumer* consumer) {
    fChain.PublicOut(port)->Connect(consumer);
    UpdatePortCompos();
}

bool TQuillController::IsConnected(int port, const TMidiConsumer* consumer) {
    return fChain.PublicOut(port)->IsConnected(consumer);
}

std::vector<TMidiConsumer*> TQuillController::Connections(int port) {
    return fChain.PublicOut(port)->Connections();
}

void TQuillController::MuteAllMidiOut() { fPorts.MuteAllMidiOut(); }

bool TQuillController::WaitOutputIdle(int64_t timeoutUs) { return fChain.WaitIdle(timeoutUs); }

int64_t TQuillController::SongLengthUs() const {
    return fProducer.PlayedTickToUs(fProducer.CountPlayedTicks(), fProducer.TempoRate());
}

int64_t TQuillController::PositionUs() const {
    return fProducer.PlayedTickToUs(fProducer.PlayedTick(), fProducer.TempoRate());
}

void TQuillController::SetPositionUs(int64_t us) {
    // The first tick at or after us: time grows with the tick, so halving finds it.
    uint64_t low = 0;
    uint64_t high = fProducer.CountPlayedTicks();
    while (low < high) {
        uint64_t middle = low + (high - low) / 2;
        if (fProducer.PlayedTickToUs(middle, fProducer.TempoRate()) < us)
            low = middle + 1;
        else
            high = middle;
    }
    fChain.QuickAllNotesOff();
    fProducer.SetPlayedTick(low);
    UpdatePosCompo();
}

std::filesystem::path TQuillController::CurSongRef() const {
    return fPlaylist->SongRef(fPlaylist->CurSongIdx());
}

int32_t TQuillController::PositionPercent() const {
    uint64_t total = fProducer.CountPlayedTicks();
    return total ? std::min(int32_t(fProducer.PlayedTick() * 100 / total), 100) : 0;
}

void TQuillController::PrefChanged() {
    fProducer.SetChase(fPrefs.chaseOnSeek);
    ApplyLoopPrefs();
}

void TQuillController::ApplyLoopPrefs() { fProducer.SetLoopSettings(fPrefs.loops); }

void TQuillController::UpdatePortCompos() { Q_EMIT PortsChanged(); }

void TQuillController::UpdatePosCompo() { Q_EMIT PositionChanged(); }

void TQuillController::ExpSongTitle() { Q_EMIT SongTitleChanged(); }

void TQuillController::TellTitleTarget(uint32_t what) {
    if (fTitleTarget) veldan::post_message(fTitleTarget, veldan::TMessage(what));
}

void TQuillController::UpdateTransportCompos() { Q_EMIT TransportChanged(fState); }

void TQuillController::UpdateDeskBarTitle() {
    if (!fTitleTarget) return;
    veldan::TMessage title(kMsgDeskBarTitle);
    bool hasSong = !fPlaylist->SongRef(fPlaylist->CurSongIdx()).empty();
    title.AddString(kDeskBarTitleField, hasSong ? fSongTitle : std::string(kAppDisplayName));
    veldan::post_message(fTitleTarget, title);
}

void TQuillController::MarkNowPlaying(bool playing) {
    Q_EMIT NowPlayingMarked(fPlaylist->CurSongIdx(), playing);
}

void TQuillController::ScrollToSong(int32_t index) { Q_EMIT ScrollRequested(index); }

void TQuillController::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case kMsgPlaySongEnded:
            PlaySongEnded(*message);
            break;
        case kMsgSilenceEnded:
            SilenceEndedRqtd();
            break;
            break;
        case kMsgPause:
            PauseSong();
            break;
        case kMsgStop:
            StopSong();
            break;
        case kMsgNext:
            NextSong();
            break;
        case kMsgPrev:
            PrevSong();
            break;
        case kMsgAllNotesOff:
            AllNotesOffRqtd();
            break;
        case kMsgMidiOut:
            MidiOutRqtd(*message);
            break;
        case kMsgPlayMode:
            PlayModeRqtd(*message);
            break;
        case kMsgVolumeChanged:
        case kMsgKeyChanged:
        case kMsgTempoChanged:
        case kMsgPosChanged:
            SliderChangedRqtd(*message);
            break;
        case kMsgMidiRosterChanged:
            // A connected consumer may have gone with its connections.
            UpdatePortCompos();
            TellTitleTarget(kMsgRecreateMenuMidiOut);
            break;
        default:
            veldan::THandler::MessageReceived(message);
            break;
    }
}

}  // namespace quill
