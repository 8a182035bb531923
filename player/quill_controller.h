#pragma once
// TQuillController: the player. It owns the whole playback chain for the program's life and
// turns requests (play, pause, stop, next, a song chosen, a slider moved, a port toggled)
// and the producer's reports into transport actions on the songs of a song list. It holds
// no widget: TQuillView is the widget that shows it and passes the user's requests on, and
// the command-line player drives it on a QCoreApplication alone. What changes is told
// through its signals.
//
// Threads: everything runs on the thread of the event loop. The play thread (end of song)
// and the note-on managers' receive threads (a reset seen in the song) only post messages
// here.
//
// The player state is a TMarnelState: stopped, playing, paused, or one of the preparing
// states (the silence between songs and the system resets, each followed by its own
// silence).

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/marnel_state.h"
#include "engine/midi_out_ports.h"
#include "engine/output_chain.h"
#include "engine/prepare_sequence.h"
#include "engine/smf_producer.h"
#include "player/play_modes.h"
#include "playlist/ai_selector.h"
#include "veldan/core/handler.h"

class TPref;
class TSongList;

namespace quill {

class TQuillController : public veldan::THandler {
    Q_OBJECT

  public:
    static constexpr uint32_t kMsgPlaySongEnded = 'plse';
    static constexpr char kSongSerialField[] = "SongSerial";
    static constexpr uint32_t kMsgSilenceEnded = 'slwe';
    static constexpr uint32_t kMsgAllNotesOff = 'alnf';
    static constexpr uint32_t kMsgMidiOut = 'mido';
    static constexpr char kMidiPortField[] = "MIDIPort";
    static constexpr char kConsumerIdField[] = "be:id";
    static constexpr uint32_t kMsgPlayMode = 'plmd';
    static constexpr char kPlayModeField[] = "PlayMode";
    static constexpr uint32_t kMsgDeskBarTitle = 'sdtr';
    static constexpr char kDeskBarTitleField[] = "DeskBarTitle";
    static constexpr char kSliderValueField[] = "be:value";
    static constexpr uint32_t kMsgMidiRosterChanged = 'MIDI';
    // To the title target: the roster's consumers changed, rebuild the MIDI OUT menus.
    static constexpr uint32_t kMsgRecreateMenuMidiOut = 'rmor';
    // To the title target: mark the MIDI OUT items again.
    static constexpr uint32_t kMsgUpdateMenuMidiOut = 'ummr';
    // To the title target: mark the play-mode item again.
    static constexpr uint32_t kMsgUpdateMenuPlayMode = 'umpr';
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

    // prefs are read, never copied, so a change takes effect at the next use; prefs and
    // songs must outlive the controller.
    TQuillController(const TPref& prefs, TSongList& songs, QObject* parent = nullptr);
    ~TQuillController() override;

    // The learned scores, for tests; the application goes through the two calls below.
    TAISelector& AISelector() { return fSelector; }
    // Reads the learned scores from the user's database, when the preferences keep one;
    // call before the first song is scored, or this run's scores would replace what was
    // learned before when they are saved. Once per run: a second call does nothing.
    void LoadLearnedScores();
    // Writes the learned scores to the user's database, when the preferences keep one: 0
    // (also when there is nothing to write to), or -1 with the file left as it was, *error
    // (the path and the reason) and *database set.
    int32_t SaveLearnedScores(std::string* error, std::filesystem::path* database) const;
    // The engine, for the widgets that show it (channel meters, lyrics) and for tests; the
    // application goes through the requests below.
    TSMFProducer& Producer() { return fProducer; }
    TOutputChain& Chain() { return fChain; }
    TMidiOutPorts& Ports() { return fPorts; }

    void SetClock(TClockFn clock) { fClock = std::move(clock); }
    // The one source of every random choice, the selector's included, so that random
    // runs can be replayed; by default an engine seeded anew on every start.
    void SetRandom(TRandomFn random);
    // The main window, told of a new Deskbar title ('sdtr') and of the menus to mark again.
    void SetTitleTarget(QObject* target) { fTitleTarget = target; }

    TMarnelState State() const { return fState; }
    int32_t PlayMode() const { return fPlayMode; }
    void SetPlayMode(int32_t mode) { fPlayMode = mode; }
    int32_t CurSongIdx() const;
    const std::string& SongTitle() const { return fSongTitle; }
    int64_t PlayStartUs() const { return fPlayStartUs; }
    // When the play thread began sending (CLOCK_MONOTONIC microseconds): later than the
    // state change to playing by the time a thread takes to start.
    int64_t PlayThreadStartedUs() const { return fProducer.PlayStartedUs(); }
    // The loaded song's length and play position at the current tempo rate; 0 without one.
    int64_t SongLengthUs() const;
    int64_t PositionUs() const;
    // The play position in percent of the song, 0 without one.
    int32_t PositionPercent() const;
    bool HasSong() const { return fProducer.CountTracks() > 0; }
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
    // is told (CannotPlay); unless the player was stopped, the songs the play mode
    // gives after it are tried in its place, each at most once, and the player stops only
    // when none of them can be loaded. False when no song was loaded or started.
    bool ChangeSong(int32_t index, bool betweenSongs);
    // Plays the song at index as the play button plays the selected one; when it cannot be
    // loaded, the next one the play mode gives. False when no song could be started.
    bool PlaySongAt(int32_t index);
    void StartMidiOut();
    void StopMidiOut();

    // The sliders' settings. A new key stops the notes of the old one rather than let them
    // clash; a new position stops the notes sounding and starts from there.
    void SetVolume(int32_t percent);
    void SetKey(int32_t key);
    void SetTempoRate(int32_t percent);
    void SetPositionPercent(int32_t percent);

    // The public ports. A consumer of the roster by id: 0, or -1 when there is none.
    int32_t ConnectMidiOut(int port, int32_t consumerId);
    // A consumer outside the roster, such as a recorder of what the player sends.
    void ConnectOutput(int port, TMidiConsumer* consumer);
    bool IsConnected(int port, const TMidiConsumer* consumer);
    std::vector<TMidiConsumer*> Connections(int port);
    // Silences every consumer of both ports, also of what the note tables never saw
    // (sustain pedals, release tails, notes left hanging in a synthesizer).
    void MuteAllMidiOut();
    // Waits until everything sent has reached the consumers; false when timeoutUs passed
    // first.
    bool WaitOutputIdle(int64_t timeoutUs);

    // Not const: the AI random mode's draw counts the selection.
    bool GetNextSongIdx(bool atEnd, int32_t* index);
    bool GetPrevSongIdx(int32_t* index);

    void ScoreUpCurrentSong();
    void ScoreDownCurrentSong();

    // The next and the previous button: the next is a skip of the current song.
    void NextSong();
    void PrevSong();
    // The play mode as the menu sets it: a liking of the current song.
    void ChangePlayMode(int32_t mode);

    // A song chosen in the list: a skip of the current one, a liking of the new one.
    void ChangeSongRqtd(int32_t index);
    // Requests as the control bar, the menus and the other threads send them.
    void PlaySongEnded(const veldan::TMessage& message);
    void SilenceEndedRqtd();
    void AllNotesOffRqtd();
    void MidiOutRqtd(const veldan::TMessage& message);
    void PlayModeRqtd(const veldan::TMessage& message);
    void SliderChangedRqtd(const veldan::TMessage& message);
    // The preferences changed.
    void PrefChanged();

    void MessageReceived(veldan::TMessage* message) override;

  Q_SIGNALS:
    // Every change of the player state.
    void StateChanged(TMarnelState state);
    // The transport buttons are to show the state again.
    void TransportChanged(TMarnelState state);
    // The play position or the song's length may have changed.
    void PositionChanged();
    // A song was loaded or unloaded.
    void SongChanged();
    // The current song's title is to be shown again (SongTitle).
    void SongTitleChanged();
    // A song that could not be loaded, and why (the reader's words).
    void CannotPlay(const std::filesystem::path& song, const std::string& reason);
    // A system reset of kind was sent before the song, or seen in it; all are forgotten
    // when another song is loaded.
    void ResetSent(int32_t kind);
    void ResetSeen(int32_t kind);
    void ResetsCleared();
    // The ports' connections may have changed.
    void PortsChanged();
    // The song at index has become the one playing, or stopped being it.
    void NowPlayingMarked(int32_t index, bool playing);
    // The song at index is to be brought into sight.
    void ScrollRequested(int32_t index);

  private:
    void SetState(TMarnelState state);
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
    void UpdatePortCompos();
    void UpdatePosCompo();
    // Tells the resets the note-on managers saw since the last look.
    void TellSysResetsSeen();
    // Hands the marked-loop preferences to the producer.
    void ApplyLoopPrefs();
    void ExpSongTitle();
    void UpdateTransportCompos();
    void UpdateDeskBarTitle();
    void ShowCannotPlay();
    void PostFromPlayThread();
    void TellTitleTarget(uint32_t what);

    const TPref& fPrefs;
    TSongList* fPlaylist;
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
    QPointer<QObject> fTitleTarget;

    TMarnelState fState = kStateStopped;
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
