#pragma once
// TChaosRun: a restless user at the player controller. Over a playlist of generated songs
// (dense, sparse, tempo maps, both ports, SysEx, and some that cannot be played) it presses
// play, pause, stop, next and previous, picks songs, seeks, turns the key, tempo and volume
// sliders, changes the play mode and connects and disconnects consumers, each at a random
// moment, as the control bar, the menus and the playlist send them.
//
// Every event that leaves the ports reaches recorders. Whenever the player rests (stopped
// or paused) and at the end, no note may still sound at any recorder, judged as a
// synthesizer would: a note-on (velocity above 0) sounds until a note-off or a velocity-0
// note-on of that channel and key, or until All Sound Off (CC 120), All Notes Off (CC 123)
// or a system reset; a stray note-off silences nothing. A watchdog thread posts a ping to the
// view and notes every time the GUI thread leaves it unanswered for longer than a second;
// the resident memory is sampled as the run goes.
//
// Threads: everything but the watchdog runs on the GUI thread, inside Run().

#include <atomic>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "midi/recorder.h"

class TPref;
namespace quill {
class TQuillView;
}

class TChaosRun {
  public:
    enum TAction : int {
        kPlay,
        kPause,
        kStop,
        kNext,
        kPrev,
        kPick,
        kSeek,
        kKey,
        kTempo,
        kVolume,
        kMode,
        kPortToggle,
        kAllNotesOff,
        kPrefs,   // the preferences window: resets, silences and chasing on seek
        kListen,  // leaves the player alone for a while, so songs can end by themselves
        kActions
    };
    static const char* ActionName(int action);

    struct TOptions {
        uint32_t seed = 1;
        double seconds = 25;
        int songs = 300;
        // Pause between two actions, drawn from an exponential distribution with that
        // mean and cut at the longest; kListen waits longer.
        int meanGapMs = 60;
        int maxGapMs = 500;
        // Actions left out (bit = 1 << action), for looking past a known fault.
        uint32_t skipActions = 0;
        // How often the resident memory is sampled.
        double rssEverySeconds = 1;
        // The preferences the view reads; the kPrefs action changes them when set.
        TPref* prefs = nullptr;
        // Told each line worth printing (a hanging note, a stall), if set.
        std::function<void(const std::string&)> log;
    };

    struct TFigures {
        double seconds = 0;
        uint64_t actions[kActions] = {};
        int64_t actionUs[kActions] = {};   // time spent in each kind (kListen: its wait)
        int64_t slowestUs[kActions] = {};  // the longest single one of each kind
        uint64_t totalActions = 0;
        uint64_t checks = 0;         // times every recorder was checked for sounding notes
        uint64_t notesChecked = 0;   // note-ons seen at the recorders
        uint64_t eventsChecked = 0;  // events of any kind seen at the recorders
        uint64_t hanging = 0;        // notes found sounding at a check
        uint64_t droppedEvents = 0;  // events the recorders had no room for
        uint64_t unsettled = 0;      // checks where the chain did not go idle in time
        uint64_t songsStarted = 0;   // state changes to playing
        uint64_t stalls = 0;         // pings left unanswered for more than a second
        int64_t longestStallUs = 0;
        std::vector<std::string> problems;  // the first few hanging notes and stalls
        // (seconds since the start, resident kB)
        std::vector<std::pair<double, int64_t>> rss;
    };

    // The view must have both public ports connected to portA and portB. The songs are
    // written into folder and added to the view's playlist by AddSongs().
    TChaosRun(quill::TQuillView& view, TMidiRecorder& portA, TMidiRecorder& portB,
              std::filesystem::path folder, TOptions options);
    ~TChaosRun();

    // Writes the songs and puts them on the playlist; false when the playlist refused one
    // that exists.
    bool AddSongs();
    // Consumers in the roster that the port action connects and disconnects, and that are
    // checked like the ports' own recorders. Not owned.
    void AddRosterConsumer(TMidiRecorder* consumer);
    // A consumer of the roster that the port action also connects and disconnects but that
    // is not heard here (one of another MIDI system).
    void AddOutsideConsumer(int32_t id) { fToggleIds.push_back(id); }
    // The figures so far; for the tick.
    const TFigures& Figures() const { return fFigures; }

    TFigures Run();

    static int64_t ResidentKB();

  private:
    struct TBalance;
    class TWatchdog;

    // Returns what was done, with its value.
    std::string Do(int action);
    void Post(uint32_t what, const char* field, int32_t value);
    void Pump(int ms);
    // Checks every recorder once the chain has gone quiet; when the player is stopped,
    // empties them afterwards.
    void CheckSilence(const char* when);
    void Scan(size_t index);
    // The events of channel at recorder index from the last note-on of key on.
    std::string Trace(size_t index, int channel, int key) const;
    void Problem(const std::string& text);

    quill::TQuillView& fView;
    std::vector<TMidiRecorder*> fRecorders;
    std::vector<int32_t> fToggleIds;
    std::vector<std::unique_ptr<TBalance>> fBalances;
    std::filesystem::path fFolder;
    TOptions fOptions;
    std::mt19937 fRandom;
    TFigures fFigures;
    std::unique_ptr<TWatchdog> fWatchdog;
    std::atomic<int> fCurrentAction{-1};
    bool fRestChanged = false;
    std::vector<std::filesystem::path> fMissing;
    std::deque<std::string> fHistory;  // the last actions, for the report of a fault
    int fKeyChangesSinceCheck = 0;     // a known way to leave notes sounding
};
