#pragma once
// TPlayThread: walks a producer's tracks in tick order and sends each event at its time.
//
// It sleeps to absolute deadlines computed by an exact song clock (TSongClock), so
// rounding never accumulates and a late wake-up sends the next events at once. Requests
// from the owner cross by atomics: the producer's pause flag, the tempo rate, and a
// one-slot seek mailbox (latest wins); each interrupts the sleep, and a new rate re-times
// the rest being slept through. The way through the rest being slept (from the tick sent
// last to the tick awaited, and when each is due) goes the other way in a sequence-locked
// set of atomics, so that readers can tell where the music is in between.

#include <atomic>
#include <cstdint>

#include "engine/chase_index.h"
#include "engine/loop_plan.h"
#include "engine/tempo_map.h"
#include "veldan/base/thread.h"

class TSMFProducer;

class TPlayThread : public veldan::TThread {
  public:
    static constexpr int32_t kPriority = veldan::kMusicPriority;

    explicit TPlayThread(TSMFProducer* producer);
    ~TPlayThread() override;

    // Owner's thread; wait-free. Applied by the thread at its next step.
    void RequestSeek(TLoopPlan::TPos pos);
    // Owner's thread, only while the thread is not running (terminated).
    void SetCurrentPos(TLoopPlan::TPos pos);
    // The pass and tick being played or waited for; a pending seek's target once requested.
    // Any thread: both come from one word, so a jump is never seen half made.
    TLoopPlan::TPos CurrentPos() const;
    // Where the music is: while playing, the tick that the time since the last sent tick
    // reaches by the song's clock, never beyond CurrentPos() and never back; paused,
    // stopped or seeking, CurrentPos(). Any thread; lock-free (a read that meets the play
    // thread's write is retried).
    TLoopPlan::TPos PlayingPos() const;
    void Wake() { Interrupt(); }

  protected:
    int32_t Execute() override;

  private:
    // Play thread: a rest between the tick sent and the tick awaited; wait-free.
    struct TRest {
        uint32_t fromTick = 0;
        int64_t fromUs = 0;  // 0: standing at the awaited tick
        int64_t toUs = 0;
        uint64_t toPos = 0;  // the awaited pass and tick, packed as fCurrentPos
    };
    bool TakeSeek(TLoopPlan::TPos* pos);
    void PublishPos(TLoopPlan::TPos pos);
    void PublishRest(const TRest& rest);
    bool PauseHere();
    bool RequestPending() const;
    // Sleeps until tick is due by clock, or until a request comes; false when stopping.
    bool SleepUntilDue(uint32_t tick, TSongClock* clock);

    TSMFProducer* fProducer;
    // The pass in the high 32 bits, the tick in the low.
    std::atomic<uint64_t> fCurrentPos{0};
    // Bit 32 set: a seek is pending, to the tick in the low 32 bits and the pass in the
    // bits above bit 32.
    std::atomic<uint64_t> fSeek{0};
    // The rest being slept through, written by the play thread only. fRestSequence is odd
    // while it writes.
    std::atomic<uint32_t> fRestSequence{0};
    std::atomic<uint32_t> fRestFromTick{0};
    std::atomic<int64_t> fRestFromUs{0};
    std::atomic<int64_t> fRestToUs{0};
    std::atomic<uint64_t> fRestToPos{0};
    TRest fRest;  // play thread: what it published last
    // Room for a chase, made with the thread so that a seek allocates nothing.
    TChaseIndex::TState fChaseState;
};
