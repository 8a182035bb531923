#pragma once
// TQuillView: the main view and the player's controller. It owns the control bar, the
// playlist, the learning selector and the whole playback chain for the program's life, and
// turns the bar's buttons and sliders, the menus' requests and the producer's reports into
// transport actions on the playlist's songs.
//
// Threads: everything runs on the GUI thread. The play thread (end of song) and the note-on
// managers' receive threads (a reset seen in the song) only post messages here.
//
// The player state is 0 stopped, 1 playing, 2 paused, 3 to 7 preparing (the silence
// between songs and the system resets, each followed by its own silence).

#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "engine/midi_out_ports.h"
#include "engine/output_chain.h"
#include "engine/prepare_sequence.h"
#include "engine/smf_producer.h"
#include "player/control_bar.h"
#include "player/play_modes.h"
#include "playlist/ai_selector.h"
#include "playlist/loader_host.h"
#include "veldan/core/handler.h"

class TOrvickView;

namespace quill {
class TChannelPanel;
class TLyricsView;
}  // namespace quill
class TPref;
class TQuillSItem;

namespace veldan {
class TLLT;
}

namespace quill {

class TQuillView : public veldan::TMessageHandler<QWidget> {
  public:
    static constexpr uint32_t kMsgPlaySongEnded = 'plse';
    static constexpr char kSongSerialField[] = "SongSerial";
    static constexpr uint32_t kMsgSilenceEnded = 'slwe';
    static constexpr uint32_t kMsgSysResetReceived = 'syrr';
    static constexpr char kSysResetField[] = "SysReset";
    static constexpr uint32_t kMsgAllNotesOff = 'alnf';
    static constexpr uint32_t kMsgMidiOut = 'mido';
    static constexpr char kMidiPortField[] = "MIDIPort";
    static constexpr char kConsumerIdField[] = "be:id";
    static constexpr uint32_t kMsgPlayMode = 'plmd';
    static constexpr char kPlayModeField[] = "PlayMode";
    static constexpr uint32_t kMsgDeskBarTitle = 'sdtr';
    static constexpr char kDeskBarTitleField[] = "DeskBarTitle";
    static constexpr char kSliderValueField[] = "be:value";
    static constexpr uint32_t kMsgPrefChanged = 'sssr';
    static constexpr char kStatBarStringField[] = "StatBarString";
    static constexpr uint32_t kMsgLanguageChanged = '_lgc';
    static constexpr uint32_t kMsgNodeLoaderChanged = 'nloc';
    static constexpr uint32_t kMsgMidiRosterChanged = 'MIDI';
    // To the title target: the roster's consumers changed, rebuild the MIDI OUT menus.
    static constexpr uint32_t kMsgRecreateMenuMidiOut = 'rmor';
    // To the title target: mark the MIDI OUT items again.
    static constexpr uint32_t kMsgUpdateMenuMidiOut = 'ummr';
    // To the title target: mark the play-mode item again.
    static constexpr uint32_t kMsgUpdateMenuPlayMode = 'umpr';
    // To the title target: the playlist was shown or hidden, fit the window to it.
    static constexpr uint32_t kMsgListShownChanged = 'lsch';
    // From the menu: show or hide the channel panel.
    static constexpr uint32_t kMsgChannelsToggled = 'tchn';
    // From the menu: show or hide the lyrics.
    static constexpr uint32_t kMsgLyricsToggled = 'tlyr';
    static constexpr uint32_t kMsgOpenCurDoc = 'ocdc';
    // Often enough that the thumb moves smoothly over a long song, seldom enough to cost
    // nothing while music plays.
    static constexpr int kPosRefreshMs = 250;
    // The Deskbar title when no song is current.
    static constexpr char kAppDisplayName[] = "Quill MIDI";

    // Scoring counts a song as skipped early up to this long after output started.
    static constexpr int64_t kEarlySkipUs = 9999999;

    // Microseconds of a monotonic clock.
    using TClockFn = std::function<int64_t()>;
    // A random number from 0 to 2^32 - 1.
    using TRandomFn = std::function<uint32_t()>;
    using TStateFn = std::function<void(int32_t state)>;
    // A song that could not be loaded, and why (the reader's words).
    using TCannotPlayFn =
        std::function<void(const std::filesystem::path& song, const std::string& reason)>;

    // texts and prefs are read, never copied, so a change of either takes effect at the
    // next use; both must outlive the view.
    TQuillView(const veldan::TLLT& texts, const TPref& prefs,
               const std::filesystem::path& loaderFolder = default_loader_folder(),
               QWidget* parent = nullptr);
    ~TQuillView() override;

    TControlBar* ControlBar() const { return fControlBar; }
    TChannelPanel* ChannelPanel() const { return fChannels; }
    TLyricsView* LyricsView() const { return fLyrics; }
    TOrvickView* OrvickView() const { return fPlaylist; }
    TAISelector& AISelector() { return fSelector; }
    TSMFProducer& Producer() { return fProducer; }
    TOutputChain& Chain() { return fChain; }
    TMidiOutPorts& Ports() { return fPorts; }

    void SetClock(TClockFn clock) { fClock = std::move(clock); }
    // The one source of every random choice, the selector's included, so that random
    // runs can be replayed; by default an engine seeded anew on every start.
    void SetRandom(TRandomFn random);
    // Told every change of the player state (the application keeps a copy for others).
    void SetStateHandler(TStateFn handler) { fStateHandler = std::move(handler); }
    // Told of every song that could not be loaded, besides the status line.
    void SetCannotPlayHandler(TCannotPlayFn handler) { fCannotPlay = std::move(handler); }
    // The main window, told of a new Deskbar title ('sdtr').
    void SetTitleTarget(QObject* target) { fTitleTarget = target; }

    int32_t State() const { return fState; }
    int32_t PlayMode() const { return fPlayMode; }
    void SetPlayMode(int32_t mode) { fPlayMode = mode; }
    int32_t CurSongIdx() const;
    const std::string& SongTitle() const { return fSongTitle; }
    int64_t PlayStartUs() const { return fPlayStartUs; }
    // The loaded song's length and play position at the current tempo rate; 0 without one.
    int64_t SongLengthUs() const;
    int64_t PositionUs() const;
    // Moves the play position as the position slider does, to the microsecond.
    void SetPositionUs(int64_t us);
    // The current song's file, empty when there is none.
    std::filesystem::path CurSongRef() const;

    // Transport.
    bool PlaySong();
    void PauseSong();
    void StopSong();
    // Loads the song at index; keeps the player going when it was playing or preparing,
    // through the silence between songs when betweenSongs. A song that cannot be loaded
    // is named on the status line; unless the player was stopped, the songs the play mode
    // gives after it are tried in its place, each at most once, and the player stops only
    // when none of them can be loaded. False when no song was loaded or started.
    bool ChangeSong(int32_t index, bool betweenSongs);
    // Plays the song at index as the play button plays the selected one; when it cannot be
    // loaded, the next one the play mode gives. False when no song could be started.
    bool PlaySongAt(int32_t index);
    void StartMidiOut();
    void StopMidiOut();

    // Not const: the AI random mode's draw counts the selection.
    bool GetNextSongIdx(bool atEnd, int32_t* index);
    bool GetPrevSongIdx(int32_t* index);

    void ScoreUpCurrentSong();
    void ScoreDownCurrentSong();

    // Requests, as the control bar, the menus and the playlist send them.
    void CButtonPlayClicked();
    void CButtonNextClicked();
    void CButtonPrevClicked();
    void ChangeSongRqtd(const veldan::TMessage& message);
    void PlaySongEnded(const veldan::TMessage& message);
    void SilenceEndedRqtd();
    void SysResetReceived(const veldan::TMessage& message);
    void AllNotesOffRqtd();
    void MidiOutRqtd(const veldan::TMessage& message);
    void PlayModeRqtd(const veldan::TMessage& message);
    void SliderChangedRqtd(const veldan::TMessage& message);

    void LanguageChanged();
    void PrefChangedRqtd(const veldan::TMessage& message);
    // The song's own document: a text or web page of the same name beside it, else its
    // folder. False when there is no current song or the desktop could not open either.
    bool OpenCurDocRqtd();
    // The window title from the playlist's first row and its kind.
    std::string WinTitle() const;
    void UpdateWinTitle();

    // The playlist part below the control bar; the list button follows.
    void ShowList(bool shown);
    bool IsListShown() const;
    // The channels' meters, mute and solo buttons, between the control bar and the list.
    void ShowChannels(bool shown);
    bool IsChannelsShown() const;
    // The song's words, between the channels and the list.
    void ShowLyrics(bool shown);
    bool IsLyricsShown() const;

    void UpdatePortCompos();
    void UpdatePosCompo();
    // Lights the indicators of the resets the note-on managers saw since the last look.
    void UpdateSysResetCompos();
    // Hands the marked-loop preferences to the producer.
    void ApplyLoopPrefs();
    void ExpSongTitle();

    void MessageReceived(veldan::TMessage* message) override;

  private:
    void SetState(int32_t state);
    bool IsPreparing() const { return fState >= kStateAfterSilence && fState <= kStateAfterXG; }
    void StepStateToPlay();
    bool SetProducer();
    void UnsetProducer();
    // Stops output and makes index the current song, loaded if it can be.
    bool LoadSong(int32_t index);
    // LoadSong, and when onward, the songs the play mode gives after (or, unless forward,
    // before) one that cannot be loaded, each at most once; false when none could be.
    bool LoadSongOnward(int32_t index, bool onward, bool forward);
    // ChangeSong, trying further songs in the given direction; play also starts the song
    // (and goes on past songs that cannot be loaded) when the player was stopped or paused.
    bool ChangeSongTo(int32_t index, bool betweenSongs, bool forward, bool play);
    TPrepareSettings PrepareSettings() const;
    TSongPick Pick();
    void MoveToSong(int32_t index, bool forward);
    // The song has played to its end while playing: the next one per play mode, or stop.
    void GoOnAfterSongEnd();
    void MarkNowPlaying(bool playing);
    void ScrollToSong(int32_t index);
    void UpdateTransportCompos();
    void UpdateDeskBarTitle();
    void ShowCannotPlay();
    void PostFromPlayThread();
    void TellTitleTarget(uint32_t what);

    const veldan::TLLT& fTexts;
    const TPref& fPrefs;
    TControlBar* fControlBar = nullptr;
    TChannelPanel* fChannels = nullptr;
    TLyricsView* fLyrics = nullptr;
    TOrvickView* fPlaylist = nullptr;
    TAISelector fSelector;

    TSMFProducer fProducer;
    TOutputChain fChain{fProducer};
    TMidiOutPorts fPorts{fChain};
    TPrepareSequence fPrepare{fChain};
    QTimer fSilenceTimer;
    QTimer fPosTimer;
    int32_t fRosterWatch = 0;
    std::shared_ptr<void> fRosterGuard;

    TClockFn fClock;
    TRandomFn fRandom;
    TStateFn fStateHandler;
    TCannotPlayFn fCannotPlay;
    QPointer<QObject> fTitleTarget;

    int32_t fState = kStateStopped;
    int32_t fPlayMode = kPlayModeSeq;
    int64_t fPlayStartUs = 0;
    std::string fSongTitle;
    // Paused after the play thread had already sent the song's last event.
    bool fSongEndedBeforePause = false;
    // Why the last song could not be loaded.
    std::string fLoadError;
    // Told to the play thread's report, so a report of a song already left is ignored.
    std::atomic<int32_t> fSongSerial{0};
};

}  // namespace quill
