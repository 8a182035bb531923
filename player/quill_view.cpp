#include "player/quill_view.h"

#include <QDesktopServices>
#include <QFont>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <mutex>
#include <vector>

#include "midi/roster.h"
#include "player/channel_panel.h"
#include "player/list_hint.h"
#include "player/lyrics_view.h"
#include "player/pref.h"
#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "veldan/base/clock.h"
#include "veldan/base/random.h"
#include "veldan/core/llt.h"

namespace quill {

namespace {

constexpr char kStatCannotPlay[] = "Stat_Str_Cannot_Play";

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

// Documents that travel with MIDI files, in the order they are looked for.
constexpr const char* kDocExtensions[] = {".txt", ".TXT", ".htm", ".html", ".HTM", ".pdf", ".doc"};

constexpr char kTextKindGeneral[] = "List_Kind_General";
constexpr char kTextKindFolder[] = "List_Kind_Folder";
constexpr char kTextKindRaw[] = "List_Kind_Raw";
constexpr char kTextKindSemiRaw[] = "List_Kind_Semi_Raw";

// Null for kinds that add nothing to the window title (songs, native lists).
const char* list_kind_key(TSupportFmt kind) {
    switch (kind) {
        case kFmtGeneralList:
            return kTextKindGeneral;
        case kFmtFolderList:
            return kTextKindFolder;
        case kFmtRawList:
            return kTextKindRaw;
        case kFmtSemiRawList:
            return kTextKindSemiRaw;
        default:
            return nullptr;
    }
}

}  // namespace

TQuillView::TQuillView(const veldan::TLLT& texts, const TPref& prefs,
                       const std::filesystem::path& loaderFolder, QWidget* parent)
    : TMessageHandler<QWidget>(parent),
      fTexts(texts),
      fPrefs(prefs),
      fClock(veldan::system_time),
      fRandom(veldan::seeded_random()) {
    fControlBar = new TControlBar(texts, this);
    fControlBar->SetTarget(this);
    fPlaylist = new TOrvickView(texts, false, loaderFolder, this);
    fPlaylist->SetOwner(this);
    new TListHint(texts, fPlaylist);
    // The list has the keys when the window opens; the control bar is a Tab away.
    fPlaylist->setFocus();
    fPlaylist->SetStatusFn([this](const std::string& text) { fControlBar->SetStatusText(text); });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    fChannels = new TChannelPanel(texts, fChain, this);
    fChannels->hide();
    fLyrics = new TLyricsView(texts, fProducer, this);
    fLyrics->hide();
    layout->addWidget(fControlBar);
    layout->addWidget(fChannels);
    layout->addWidget(fLyrics);
    layout->addWidget(fPlaylist, 1);

    fSelector.SetOrvickView(fPlaylist);
    fSelector.SetRandom(fRandom);

    fSilenceTimer.setSingleShot(true);
    // A coarse timer may fire 5 % early, and a silence must be at least what was asked.
    fSilenceTimer.setTimerType(Qt::PreciseTimer);
    connect(&fSilenceTimer, &QTimer::timeout, this, [this] { SilenceEndedRqtd(); });
    fPrepare.SetResetSentHandler(
        [this](int32_t kind) { fControlBar->SetResetLit(kind, TLCDIndicator::TLit::kHalfLit); });
    fProducer.SetEndOfSongHandler([this] { PostFromPlayThread(); });
    fPosTimer.setInterval(kPosRefreshMs);
    connect(&fPosTimer, &QTimer::timeout, this, [this] {
        UpdatePosCompo();
        UpdateSysResetCompos();
    });
    auto guard = std::make_shared<TPostGuard>(this);
    fRosterGuard = guard;
    fRosterWatch = TMidiRoster::Default().AddWatcher(
        [guard] { guard->Post(veldan::TMessage(kMsgMidiRosterChanged)); });
    fControlBar->TurnOffAllSysReset();
    UpdatePortCompos();
    UpdateTransportCompos();
    fProducer.SetChase(prefs.chaseOnSeek);
    ApplyLoopPrefs();
}

TQuillView::~TQuillView() {
    TMidiRoster::Default().RemoveWatcher(fRosterWatch);
    std::static_pointer_cast<TPostGuard>(fRosterGuard)->Close();
    // No thread may post here once the view is gone: the play thread ends with Stop.
    fProducer.Stop();
}

void TQuillView::PostFromPlayThread() {
    veldan::TMessage ended(kMsgPlaySongEnded);
    ended.AddInt32(kSongSerialField, fSongSerial.load(std::memory_order_relaxed));
    veldan::post_message(this, ended);
}

void TQuillView::SetRandom(TRandomFn random) {
    fRandom = std::move(random);
    fSelector.SetRandom(fRandom);
}

int32_t TQuillView::CurSongIdx() const { return fPlaylist->CurSongIdx(); }

void TQuillView::SetState(int32_t state) {
    const bool wasPlaying = fState == kStatePlaying;
    fState = state;
    if (state == kStatePlaying) {
        fPosTimer.start();
    } else {
        fPosTimer.stop();
        // The timer's last look: a song shorter than its interval still lights its resets.
        if (wasPlaying) UpdateSysResetCompos();
    }
    // Stopped or preparing, the song starts from its beginning; paused, it goes on from
    // where it stands.
    UpdatePosCompo();
    if (fStateHandler) fStateHandler(state);
}

// Transport ------------------------------------------------------------------------------

bool TQuillView::PlaySong() {
    if (fPlaylist->Songs() == 0 || fProducer.CountTracks() == 0) return false;
    // During a silence only its end moves on: a second play would cut it short, and a
    // synthesizer still busy with its reset would lose the song's first notes.
    if (fState == kStateStopped || (IsPreparing() && !fSilenceTimer.isActive())) StepStateToPlay();
    UpdateTransportCompos();
    return true;
}

TPrepareSettings TQuillView::PrepareSettings() const {
    TPrepareSettings settings;
    settings.silenceBetweenSongs = fPrefs.waitBetweenSongs;
    settings.silenceBetweenSongsUs = fPrefs.silenceBetweenSongsUs;
    settings.sendResets = fPrefs.sendSysResets;
    settings.resetMask = fPrefs.sysResetCombination;
    settings.silenceAfterResetsUs = fPrefs.silenceAfterResetsUs;
    return settings;
}

void TQuillView::StepStateToPlay() {
    // The preferences may have changed since the last song; a start in progress keeps
    // the ones it began with.
    if (fState == kStateStopped) fPrepare.SetSettings(PrepareSettings());
    int32_t state = fState;
    int64_t waitUs = fPrepare.StepToPlay(&state);
    SetState(state);
    if (waitUs > 0)
        fSilenceTimer.start(silence_ms(waitUs));
    else if (state == kStatePlaying)
        StartMidiOut();
}

void TQuillView::SilenceEndedRqtd() {
    fSilenceTimer.stop();
    if (IsPreparing()) PlaySong();
}

void TQuillView::PauseSong() {
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

void TQuillView::StopSong() {
    if (fState != kStateStopped) {
        StopMidiOut();
        UnsetProducer();
        SetState(kStateStopped);
    }
    UpdateTransportCompos();
}

void TQuillView::StartMidiOut() {
    fProducer.Play();
    fPlayStartUs = fClock();
}

void TQuillView::StopMidiOut() {
    fSongEndedBeforePause = false;
    fSilenceTimer.stop();
    fProducer.Stop();
    fChain.QuickAllNotesOff();
}

bool TQuillView::SetProducer() {
    fSongTitle.clear();
    fLoadError.clear();
    const TQuillSItem* song = fPlaylist->Song(fPlaylist->CurSongIdx());
    if (!song) return false;
    fSongSerial.fetch_add(1, std::memory_order_relaxed);
    if (fProducer.SetTo(song->EntryRef().string()) != 0)
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
    fLyrics->SongChanged();
    return true;
}

void TQuillView::UnsetProducer() {
    fProducer.Unset();
    fLyrics->SongChanged();
}

bool TQuillView::LoadSong(int32_t index) {
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
    fControlBar->TurnOffAllSysReset();
    // What the songs before left unread is theirs, not this one's.
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        fChain.NoteOnManager(port).TakeSysResets();
    return true;
}

bool TQuillView::LoadSongOnward(int32_t index, bool onward, bool forward) {
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

bool TQuillView::ChangeSong(int32_t index, bool betweenSongs) {
    return ChangeSongTo(index, betweenSongs, true, false);
}

bool TQuillView::ChangeSongTo(int32_t index, bool betweenSongs, bool forward, bool play) {
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

void TQuillView::ShowCannotPlay() {
    const TQuillSItem* song = fPlaylist->Song(fPlaylist->CurSongIdx());
    if (!song) return;
    fControlBar->SetStatusText(fTexts.Text(kStatCannotPlay) + song->FileName() + " (" + fLoadError +
                               ")");
    if (fCannotPlay) fCannotPlay(song->EntryRef(), fLoadError);
}

// Play modes -----------------------------------------------------------------------------

TSongPick TQuillView::Pick() {
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

bool TQuillView::GetNextSongIdx(bool atEnd, int32_t* index) {
    return next_song_idx(Pick(), atEnd, index);
}

bool TQuillView::GetPrevSongIdx(int32_t* index) { return prev_song_idx(Pick(), index); }

void TQuillView::MoveToSong(int32_t index, bool forward) {
    ChangeSongTo(fold_song_idx(index, fPlaylist->Songs()), false, forward, false);
    ScrollToSong(fPlaylist->CurSongIdx());
}

void TQuillView::PlaySongEnded(const veldan::TMessage& message) {
    int32_t serial = -1;
    message.FindInt32(kSongSerialField, &serial);
    // The song may have been left after its end was reported and before the report came.
    if (serial != fSongSerial.load(std::memory_order_relaxed) || fState != kStatePlaying) return;
    GoOnAfterSongEnd();
}

void TQuillView::GoOnAfterSongEnd() {
    int32_t index = fPlaylist->CurSongIdx();
    if (!GetNextSongIdx(true, &index)) {
        StopSong();
        return;
    }
    ChangeSong(fold_song_idx(index, fPlaylist->Songs()), true);
    ScrollToSong(fPlaylist->CurSongIdx());
}

void TQuillView::CButtonNextClicked() {
    ScoreDownCurrentSong();
    int32_t index = fPlaylist->CurSongIdx();
    if (GetNextSongIdx(false, &index)) MoveToSong(index, true);
}

void TQuillView::CButtonPrevClicked() {
    int32_t index = fPlaylist->CurSongIdx();
    if (GetPrevSongIdx(&index)) MoveToSong(index, false);
}

void TQuillView::CButtonPlayClicked() {
    if (fState == kStatePaused) {
        PauseSong();
        return;
    }
    // The selected song, else the current one.
    int32_t index = fPlaylist->SelectedSongIdx(0);
    PlaySongAt(index < 0 ? fPlaylist->CurSongIdx() : index);
}

bool TQuillView::PlaySongAt(int32_t index) {
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

void TQuillView::ChangeSongRqtd(const veldan::TMessage& message) {
    int32_t index = 0;
    if (!message.FindInt32(TOrvickView::kSongIndexField, &index)) return;
    ScoreDownCurrentSong();
    if (ChangeSong(index, false)) ScoreUpCurrentSong();
}

// Scores ---------------------------------------------------------------------------------

void TQuillView::ScoreUpCurrentSong() {
    if (fPrefs.useAIDatabase) fSelector.ChangeScore(fPlaylist->Song(fPlaylist->CurSongIdx()), 1);
}

void TQuillView::ScoreDownCurrentSong() {
    if (!fPrefs.useAIDatabase || fState == kStateStopped) return;
    if (fClock() - fPlayStartUs > kEarlySkipUs) return;
    fSelector.ChangeScore(fPlaylist->Song(fPlaylist->CurSongIdx()), -1);
}

// Menus, sliders and the chain -----------------------------------------------------------

void TQuillView::SysResetReceived(const veldan::TMessage& message) {
    int32_t kind = 0;
    if (message.FindInt32(kSysResetField, &kind))
        fControlBar->SetResetLit(kind, TLCDIndicator::TLit::kLit);
}

void TQuillView::UpdateSysResetCompos() {
    // The note-on managers' receive threads only raise bits: posting from there would
    // allocate and take Qt's lock while music plays.
    for (int port = 0; port < TOutputChain::kPorts; ++port) {
        const int32_t kinds = fChain.NoteOnManager(port).TakeSysResets();
        for (int32_t kind = 1; kind <= kinds; kind <<= 1)
            if (kinds & kind) fControlBar->SetResetLit(kind, TLCDIndicator::TLit::kLit);
    }
}

void TQuillView::AllNotesOffRqtd() {
    fChain.QuickAllNotesOff();
    // Also what the note tables never saw, such as notes left hanging in a synthesizer.
    fPorts.MuteAllMidiOut();
}

void TQuillView::MidiOutRqtd(const veldan::TMessage& message) {
    int32_t port = 0;
    int32_t id = 0;
    if (!message.FindInt32(kMidiPortField, &port) || !message.FindInt32(kConsumerIdField, &id))
        return;
    fPorts.ToggleMidiOut(port, id);
    UpdatePortCompos();
    TellTitleTarget(kMsgUpdateMenuMidiOut);
}

void TQuillView::PlayModeRqtd(const veldan::TMessage& message) {
    int32_t mode = kPlayModeSeq;
    if (!message.FindInt32(kPlayModeField, &mode)) return;
    SetPlayMode(mode);
    ScoreUpCurrentSong();
    TellTitleTarget(kMsgUpdateMenuPlayMode);
}

void TQuillView::SliderChangedRqtd(const veldan::TMessage& message) {
    int32_t value = 0;
    if (!message.FindInt32(kSliderValueField, &value)) return;
    switch (message.what) {
        case kMsgVolumeChanged:
            fChain.SetVolume(value);
            break;
        case kMsgKeyChanged:
            // The notes of the old key stop with it rather than clash with the new one. The
            // filters send every note-off where its note-on went, so nothing needs to
            // drain between the two.
            fChain.QuickAllNotesOff();
            fChain.SetKey(value);
            break;
        case kMsgTempoChanged:
            fProducer.SetTempoRate(value);
            break;
        case kMsgPosChanged:
            fChain.QuickAllNotesOff();
            fProducer.SetPlayedTick(fProducer.CountPlayedTicks() * uint32_t(value) / 100);
            // Stopped, the producer has no place to keep a position: the thumb goes back
            // to where playing will start.
            UpdatePosCompo();
            break;
        default:
            break;
    }
}

int64_t TQuillView::SongLengthUs() const {
    return fProducer.PlayedTickToUs(fProducer.CountPlayedTicks(), fProducer.TempoRate());
}

int64_t TQuillView::PositionUs() const {
    return fProducer.PlayedTickToUs(fProducer.PlayedTick(), fProducer.TempoRate());
}

void TQuillView::SetPositionUs(int64_t us) {
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

std::filesystem::path TQuillView::CurSongRef() const {
    const TQuillSItem* song = fPlaylist->Song(fPlaylist->CurSongIdx());
    return song ? song->EntryRef() : std::filesystem::path();
}

// Compos ---------------------------------------------------------------------------------

void TQuillView::ShowList(bool shown) {
    fControlBar->SetListShown(shown);
    if (fPlaylist->isHidden() == !shown) return;
    fPlaylist->setVisible(shown);
    TellTitleTarget(kMsgListShownChanged);
}

bool TQuillView::IsListShown() const { return !fPlaylist->isHidden(); }

void TQuillView::ShowChannels(bool shown) { fChannels->setVisible(shown); }

bool TQuillView::IsChannelsShown() const { return !fChannels->isHidden(); }

void TQuillView::ShowLyrics(bool shown) { fLyrics->setVisible(shown); }

bool TQuillView::IsLyricsShown() const { return !fLyrics->isHidden(); }

void TQuillView::UpdatePortCompos() {
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        fControlBar->SetPortLit(port, fPorts.IsPortConnected(port));
}

void TQuillView::UpdatePosCompo() {
    // The time goes on while the user drags: the song plays on until the thumb is let go.
    fControlBar->SetTime(PositionUs(), fProducer.CountTracks() > 0 ? SongLengthUs() : -1);
    // The user's drag wins over the song's progress.
    if (fControlBar->IsSliderDragged(TControlBar::kPos)) return;
    uint64_t total = fProducer.CountPlayedTicks();
    int32_t percent = total ? int32_t(fProducer.PlayedTick() * 100 / total) : 0;
    if (percent != fControlBar->SliderValue(TControlBar::kPos))
        fControlBar->SetSliderValue(TControlBar::kPos, std::min(percent, 100));
}

void TQuillView::ExpSongTitle() { fControlBar->SetTitle(fSongTitle); }

std::string TQuillView::WinTitle() const {
    std::string title;
    if (auto* first = static_cast<TQuillSItem*>(fPlaylist->topLevelItem(0))) {
        title = first->ExpFName(fTexts);
        if (const char* kindKey = list_kind_key(first->Kind())) title += fTexts.Text(kindKey);
    }
    return title + " - " + kAppDisplayName;
}

void TQuillView::UpdateWinTitle() { window()->setWindowTitle(QString::fromStdString(WinTitle())); }

void TQuillView::LanguageChanged() {
    fControlBar->ApplyLanguage(fTexts);
    fChannels->ApplyLanguage(fTexts);
    fLyrics->ApplyLanguage(fTexts);
    fPlaylist->LanguageChanged();
    if (auto* hint = fPlaylist->findChild<TListHint*>()) hint->ApplyLanguage(fTexts);
    UpdateWinTitle();
}

void TQuillView::PrefChangedRqtd(const veldan::TMessage& message) {
    std::string text;
    if (message.FindString(kStatBarStringField, &text)) fControlBar->SetStatusText(text);
    fPlaylist->SetAutoSortKind(fPrefs.autoSortKind);
    fProducer.SetChase(fPrefs.chaseOnSeek);
    ApplyLoopPrefs();
}

void TQuillView::ApplyLoopPrefs() { fProducer.SetLoopSettings(fPrefs.loops); }

bool TQuillView::OpenCurDocRqtd() {
    const TQuillSItem* song = fPlaylist->Song(fPlaylist->CurSongIdx());
    if (!song) return false;
    std::filesystem::path target = song->EntryRef().parent_path();
    for (const char* extension : kDocExtensions) {
        std::filesystem::path doc = song->EntryRef();
        doc.replace_extension(extension);
        std::error_code error;
        if (std::filesystem::is_regular_file(doc, error)) {
            target = doc;
            break;
        }
    }
    return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(target.string())));
}

void TQuillView::TellTitleTarget(uint32_t what) {
    if (fTitleTarget) veldan::post_message(fTitleTarget, veldan::TMessage(what));
}

void TQuillView::UpdateTransportCompos() { fControlBar->SetPlayState(fState); }

void TQuillView::UpdateDeskBarTitle() {
    if (!fTitleTarget) return;
    veldan::TMessage title(kMsgDeskBarTitle);
    bool hasSong = fPlaylist->Song(fPlaylist->CurSongIdx()) != nullptr;
    title.AddString(kDeskBarTitleField, hasSong ? fSongTitle : std::string(kAppDisplayName));
    veldan::post_message(fTitleTarget, title);
}

void TQuillView::MarkNowPlaying(bool playing) {
    // The row has no flag of its own for this; a bold text shows the song in the list.
    TQuillSItem* song = fPlaylist->Song(fPlaylist->CurSongIdx());
    if (!song) return;
    QFont font = song->font(0);
    font.setBold(playing);
    song->setFont(0, font);
}

void TQuillView::ScrollToSong(int32_t index) {
    if (TQuillSItem* song = fPlaylist->Song(index)) fPlaylist->scrollToItem(song);
}

void TQuillView::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case kMsgPlaySongEnded:
            PlaySongEnded(*message);
            break;
        case kMsgSilenceEnded:
            SilenceEndedRqtd();
            break;
        case kMsgSysResetReceived:
            SysResetReceived(*message);
            break;
        case kMsgPlay:
            CButtonPlayClicked();
            break;
        case kMsgPause:
            PauseSong();
            break;
        case kMsgStop:
            StopSong();
            break;
        case kMsgNext:
            CButtonNextClicked();
            break;
        case kMsgPrev:
            CButtonPrevClicked();
            break;
        case kMsgListToggled:
            ShowList(fControlBar->IsListShown());
            break;
        case kMsgChannelsToggled:
            ShowChannels(!IsChannelsShown());
            break;
        case kMsgLyricsToggled:
            ShowLyrics(!IsLyricsShown());
            break;
        case TOrvickView::kMsgChangeSongRqtd:
            ChangeSongRqtd(*message);
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
        case kMsgPrefChanged:
            PrefChangedRqtd(*message);
            break;
        case kMsgLanguageChanged:
            LanguageChanged();
            break;
        case kMsgNodeLoaderChanged:
            fPlaylist->NodeLoaderChanged();
            break;
        case TOrvickView::kMsgUpdateWinTitle:
            UpdateWinTitle();
            break;
        case kMsgOpenCurDoc:
        case TOrvickView::kMsgPopupOpenDoc:
            OpenCurDocRqtd();
            break;
        default:
            TMessageHandler<QWidget>::MessageReceived(message);
            break;
    }
}

}  // namespace quill
