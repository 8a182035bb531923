#pragma once
// TSMFProducer: a loaded song, its two output lanes and the play thread that sends the
// song's events on time.
//
// Threads: every public member is for the owner's thread (the window thread, or the
// headless driver), except where noted. The play thread reads the tempo rate and the
// pause and seek requests through atomics and is woken at once when they change:
// Pause returns as soon as the thread has stopped sending, however long the rest it was
// sleeping through, and a seek takes effect immediately.

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/chase_index.h"
#include "engine/loop_plan.h"
#include "engine/smf_track.h"
#include "engine/tempo_map.h"
#include "midi/local_producer.h"

class TPlayThread;

// A sink for the song as played, its marked loop unrolled. It counts the notes it has
// passed on, so that where the song jumps back or ends in the middle, those still
// sounding can be released.
// Told by the play thread of every step of the fade level, once FadeLevel() holds it and
// before the events that follow it are sent; the play thread's rules hold: wait-free.
class TFadeListener {
  public:
    virtual void FadeStepped(int32_t level) = 0;

  protected:
    ~TFadeListener() = default;
};

class TPlaySink : public TSMFEventSink {
  public:
    void Event(const TSMFEvent& event) final;
    // Note-offs (velocity 64) at tick for every note passed on and not yet ended.
    void ReleaseSounding(uint32_t tick);
    // Forgets the notes passed on: the owner has silenced them itself (pause, seek).
    void ForgetSounding() { fSounding.fill(0); }
    // The pass through the loop that the next events belong to (see TLoopPlan).
    uint32_t Pass() const { return fPass; }
    void SetPass(uint32_t pass) { fPass = pass; }
    // The fade level (per mille) for the events from tick on; told only when it changes.
    virtual void FadeLevelChanged(int32_t /*level*/, uint32_t /*tick*/) {}
    int32_t FadeLevel() const { return fFadeLevel; }
    void SetFadeLevel(int32_t level, uint32_t tick);

  protected:
    virtual void Deliver(const TSMFEvent& event) = 0;

  private:
    // Per port, channel and note: how many note-ons wait for their note-off.
    std::array<uint8_t, 2 * 16 * 128> fSounding{};
    uint32_t fPass = 0;
    int32_t fFadeLevel = TLoopPlan::kFadeFull;
};

class TSMFProducer {
  public:
    static constexpr size_t kMaxFileBytes = size_t(1) << 30;

    TSMFProducer();
    ~TSMFProducer();
    TSMFProducer(const TSMFProducer&) = delete;
    TSMFProducer& operator=(const TSMFProducer&) = delete;

    // Loading. 0, or -1 with the reason in LastError(); a failed load leaves the producer
    // empty, and running out of memory on a hostile file is such a failure. A file is
    // taken out of an RMID wrapper first; bytes must be the Standard MIDI File itself.
    int32_t SetTo(const std::string& path);
    int32_t SetTo(std::vector<uint8_t> bytes);
    const std::string& LastError() const { return fLastError; }
    void Unset();

    int32_t GetTitle(std::string* title) const;
    // kept: copyright text is never offered.
    int32_t GetCopyright(std::string*) const { return -1; }

    // Transport.
    int32_t Play();
    int32_t Pause();
    int32_t Stop();
    bool IsPlaying() const;
    bool IsPaused() const { return fPaused; }

    // The tempo rate in percent of the song's own tempo; values below 1 are taken as 1.
    // A playing thread is woken and plays the rest it was sleeping through at the new
    // rate from now on.
    void SetTempoRate(int32_t percent);
    int32_t TempoRate() const { return fTempoRate.load(std::memory_order_relaxed); }

    // -1 without a play thread; else moves every track to the first event at or after tick.
    int32_t SetCurrentTick(uint32_t tick);
    // Where the music is, also inside a long note or rest (see TPlayThread::PlayingPos); 0
    // without a play thread. Any thread.
    uint32_t CurrentTick() const;
    uint32_t CountTicks() const { return fTotalTicks; }

    TMidiLocalProducer* Producer(long index) const { return fProducers[index & 1].get(); }

    int16_t Division() const { return fDivision; }
    // Microseconds per quarter note in force; written by the play thread.
    uint32_t Tempo() const { return fTempo.load(std::memory_order_relaxed); }
    void SetTempo(uint32_t usPerQuarter) { fTempo.store(usPerQuarter, std::memory_order_relaxed); }
    size_t CountTracks() const { return fTracks.size(); }
    const TSMFTrack& TrackAt(size_t index) const { return *fTracks[index]; }
    const TTempoMap& TempoMap() const { return fTempoMap; }

    // Called on the play thread once, when the song has played to its end (not after Stop).
    void SetEndOfSongHandler(std::function<void()> handler) { fEndOfSong = std::move(handler); }
    // CLOCK_MONOTONIC microseconds at which the current play thread started sending.
    int64_t PlayStartedUs() const { return fPlayStartedUs.load(std::memory_order_acquire); }

    // Hands every event to sink in the order the play thread sends them, without timing,
    // then rewinds. Not while a play thread exists.
    void Walk(TSMFEventSink& sink);
    // The same for the song as played (see SetLoopSettings): loops unrolled, notes
    // released and state sent where it jumps, the fade told to sink.
    void WalkPlayed(TPlaySink& sink);

    // Marked loops (see TLoopPlan): off by default. Where the song marks none, or the
    // settings are off, the song plays as it always has. Taken at once when no play thread
    // exists, else from the next Stop or load. A song with a loop to play gets the chase
    // index whatever the chase setting: the loop's start needs the state in force there.
    void SetLoopSettings(const TLoopSettings& settings);
    const TLoopSettings& LoopSettings() const { return fLoopSettings; }
    const TLoopPoints& LoopPoints() const { return fLoopPoints; }
    const TLoopPlan& LoopPlan() const { return fLoopPlan; }

    // The played song's timeline in played ticks (see TLoopPlan): without a loop to play,
    // the same as CountTicks, CurrentTick, SetCurrentTick and TempoMap().TickToUs.
    uint64_t CountPlayedTicks() const { return fLoopPlan.PlayedTick(LastPos()); }
    uint64_t PlayedTick() const;
    int32_t SetPlayedTick(uint64_t playedTick);
    int64_t PlayedTickToUs(uint64_t playedTick, int32_t ratePercent) const;

    // The fade level (per mille) of the played song; written by the play thread, read by
    // the filters of the output chain on their receive threads.
    const std::atomic<int32_t>& FadeLevel() const { return fFadeLevel; }
    // Owner's thread, no song playing: who hears of the fade's steps; null for nobody. The
    // play thread also tells it the level it starts at, so that a fade cut short by a stop
    // or an end is undone when the next song plays.
    void SetFadeListener(TFadeListener* listener) {
        fFadeListener.store(listener, std::memory_order_release);
    }
    TFadeListener* FadeListener() const { return fFadeListener.load(std::memory_order_acquire); }

    // Chase on seek: after a seek, the programs (with their banks), controllers, registered
    // and non-registered parameters, pitch bends and channel pressures in force at the new
    // place are sent (see TChaseIndex), and its tempo taken, before playing on. Off by
    // default: events before the new place are skipped. The index it needs is built when a
    // song loads with chase on, or here when no play thread exists; turned on while a song
    // plays, it takes effect from the next song. Without the memory for the index the song
    // plays without chase.
    void SetChase(bool on);
    bool IsChaseOn() const { return fChaseOn.load(std::memory_order_relaxed); }
    bool HasChaseIndex() const { return fChaseIndex != nullptr; }

  private:
    friend class TPlayThread;

    int32_t ReadHeader(const uint8_t* data, size_t size, size_t* offset, uint16_t* tracks);
    int32_t ReadTracks();
    int32_t Fail(std::string reason);
    void BuildTempoMap();
    void Rewind();
    // Play thread: one step of the walk shared by playing and Walk(); kNoEvent at the end.
    uint32_t SprayTick(uint32_t tick, TSMFEventSink& sink);
    // Play thread, after a seek to tick: sends the chased state through sink; scratch is
    // the caller's room for it.
    void ChaseTo(uint32_t tick, TSMFEventSink& sink, TChaseIndex::TState* scratch);
    // The same whatever the chase setting, as a loop's start needs it.
    void SendStateAt(uint32_t tick, TSMFEventSink& sink, TChaseIndex::TState* scratch);
    void BuildChaseIndex();
    void SongEnded();
    void FindLoopPoints();
    void UpdateLoopPlan();
    TLoopPlan::TPos LastPos() const;
    int32_t SetPlayedPos(TLoopPlan::TPos pos);
    // Play thread or WalkPlayed, before the events of pos: once pos reaches its pass's stop
    // tick, releases what sink has sounding and either jumps back to the loop's start (the
    // tracks, pos and the tempo move there and the state in force there is sent) or ends
    // the song (false). Tells sink the fade level at pos.
    bool LoopStep(TLoopPlan::TPos* pos, int64_t fadeElapsedUs, TPlaySink& sink,
                  TChaseIndex::TState* scratch);
    // After the events of pos: the next tick to stop at (the next event's, where the pass
    // stops, or during a fade the next step of its level), or kNoEvent at the song's end;
    // the fade's run time moves on to it. Steps of 50 ms are heard as a smooth fade: a
    // 7-bit volume moves by at most a few units per step over the shortest fade.
    static constexpr int64_t kFadeStepUs = 50000;
    uint32_t NextTick(TLoopPlan::TPos pos, uint32_t wait, int64_t* fadeElapsedUs) const;

    std::vector<uint8_t> fFile;
    std::vector<std::unique_ptr<TSMFTrack>> fTracks;
    int16_t fDivision = 0;
    std::atomic<uint32_t> fTempo{TTempoMap::kDefaultTempo};
    std::atomic<int32_t> fTempoRate{100};
    uint32_t fTotalTicks = 0;
    TTempoMap fTempoMap;
    std::string fLastError;

    std::unique_ptr<TMidiLocalProducer> fProducers[2];
    std::unique_ptr<TPlayThread> fPlayThread;
    std::atomic<uint32_t> fPauseRequest{0};
    bool fPaused = false;
    std::function<void()> fEndOfSong;
    std::atomic<int64_t> fPlayStartedUs{0};
    std::atomic<bool> fChaseOn{false};
    // Made and dropped only while no play thread exists.
    std::unique_ptr<TChaseIndex> fChaseIndex;
    TLoopSettings fLoopSettings;
    TLoopPoints fLoopPoints;
    // Changed only while no play thread exists.
    TLoopPlan fLoopPlan;
    std::atomic<int32_t> fFadeLevel{TLoopPlan::kFadeFull};
    std::atomic<TFadeListener*> fFadeListener{nullptr};
};
