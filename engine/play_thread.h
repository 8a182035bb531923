#pragma once
// TPlayThread: walks a producer's tracks in tick order and sends each event at its time.
//
// It sleeps to absolute deadlines computed by an exact song clock (TSongClock), so
// rounding never accumulates and a late wake-up sends the next events at once. Requests
// from the owner cross by atomics: the producer's pause flag, the tempo rate, and a
// one-slot seek mailbox (latest wins); each interrupts the sleep, and a new rate re-times
// the rest being slept through.

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
    void Wake() { Interrupt(); }

  protected:
    int32_t Execute() override;

  private:
    bool TakeSeek(TLoopPlan::TPos* pos);
    void PublishPos(TLoopPlan::TPos pos);
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
    // Room for a chase, made with the thread so that a seek allocates nothing.
    TChaseIndex::TState fChaseState;
};
