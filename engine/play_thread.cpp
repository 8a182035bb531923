#include "engine/play_thread.h"

#include <algorithm>

#include "engine/smf_producer.h"
#include "midi/midi_defs.h"
#include "veldan/base/clock.h"

namespace {

constexpr uint64_t kSeekPending = uint64_t(1) << 32;
constexpr int kSeekPassShift = 33;

// A reader that meets the play thread writing this many times in a row gives up on the
// rest and takes the awaited tick; the writer is a handful of stores, so it never does.
constexpr int kRestReadTries = 64;

uint64_t pack_pos(TLoopPlan::TPos pos) { return uint64_t(pos.pass) << 32 | pos.tick; }

// The tick that nowUs reaches in a rest from fromTick at fromUs to toTick at toUs. The
// tempo and the rate are constant through a rest (every Set Tempo is an event, and a new
// rate starts a new rest), so the song's ticks go evenly through it.
uint32_t tick_in_rest(uint32_t fromTick, int64_t fromUs, uint32_t toTick, int64_t toUs,
                      int64_t nowUs) {
    if (nowUs <= fromUs || toTick <= fromTick) return std::min(fromTick, toTick);
    if (nowUs >= toUs) return toTick;
    return fromTick + uint32_t(__int128(nowUs - fromUs) * (toTick - fromTick) / (toUs - fromUs));
}

// Sends the song's events through the producer's lanes, as they come due.
class TSprayToLanes : public TPlaySink {
  public:
    explicit TSprayToLanes(TSMFProducer& producer, std::atomic<int32_t>& fadeLevel)
        : fProducer(producer), fFadeLevel(fadeLevel) {}

    void FadeLevelChanged(int32_t level, uint32_t /*tick*/) override {
        fFadeLevel.store(level, std::memory_order_relaxed);
        if (TFadeListener* listener = fProducer.FadeListener()) listener->FadeStepped(level);
    }

  protected:
    void Deliver(const TSMFEvent& e) override {
        const TMidiLocalProducer& out = *fProducer.Producer(long(e.port));
        uint8_t channel = e.status & 0x0F;
        const uint8_t* d = e.data;
        switch (e.status & 0xF0) {
            case midi::kNoteOff:
                out.SprayNoteOff(channel, d[0], d[1], 0);
                return;
            case midi::kNoteOn:
                out.SprayNoteOn(channel, d[0], d[1], 0);
                return;
            case midi::kKeyPressure:
                out.SprayKeyPressure(channel, d[0], d[1], 0);
                return;
            case midi::kControlChange:
                out.SprayControlChange(channel, d[0], d[1], 0);
                return;
            case midi::kProgramChange:
                out.SprayProgramChange(channel, d[0], 0);
                return;
            case midi::kChannelPressure:
                out.SprayChannelPressure(channel, d[0], 0);
                return;
            case midi::kPitchBend:
                out.SprayPitchBend(channel, d[0], d[1], 0);
                return;
            default:
                break;
        }
        if (e.status == midi::kSysExStart) out.SpraySystemExclusive(e.data, e.length, 0);
    }

  private:
    const TSMFProducer& fProducer;
    std::atomic<int32_t>& fFadeLevel;
};

}  // namespace

TPlayThread::TPlayThread(TSMFProducer* producer)
    : veldan::TThread("PlayThread", kPriority), fProducer(producer) {
    // The index cannot change while this thread exists.
    if (producer->fChaseIndex) producer->fChaseIndex->Prepare(&fChaseState);
}

TPlayThread::~TPlayThread() { Stop(); }

void TPlayThread::RequestSeek(TLoopPlan::TPos pos) {
    fSeek.store(uint64_t(pos.pass) << kSeekPassShift | kSeekPending | pos.tick,
                std::memory_order_release);
    PublishPos(pos);
    Interrupt();
}

void TPlayThread::SetCurrentPos(TLoopPlan::TPos pos) { PublishPos(pos); }

void TPlayThread::PublishPos(TLoopPlan::TPos pos) {
    fCurrentPos.store(pack_pos(pos), std::memory_order_release);
}

TLoopPlan::TPos TPlayThread::CurrentPos() const {
    const uint64_t word = fCurrentPos.load(std::memory_order_acquire);
    return {uint32_t(word >> 32), uint32_t(word)};
}

TLoopPlan::TPos TPlayThread::PlayingPos() const {
    const TLoopPlan::TPos at = CurrentPos();
    if (fSeek.load(std::memory_order_acquire) & kSeekPending) return at;
    for (int tries = 0; tries < kRestReadTries; ++tries) {
        const uint32_t sequence = fRestSequence.load(std::memory_order_acquire);
        if (sequence & 1) continue;
        const uint32_t fromTick = fRestFromTick.load(std::memory_order_relaxed);
        const int64_t fromUs = fRestFromUs.load(std::memory_order_relaxed);
        const int64_t toUs = fRestToUs.load(std::memory_order_relaxed);
        const uint64_t toPos = fRestToPos.load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (fRestSequence.load(std::memory_order_relaxed) != sequence) continue;
        // A rest that is not the one towards the awaited tick is over: a jump to a loop's
        // start, a seek, a stop.
        if (fromUs == 0 || toPos != pack_pos(at)) return at;
        return {at.pass, tick_in_rest(fromTick, fromUs, at.tick, toUs, veldan::system_time())};
    }
    return at;
}

void TPlayThread::PublishRest(const TRest& rest) {
    fRest = rest;
    const uint32_t sequence = fRestSequence.load(std::memory_order_relaxed);
    fRestSequence.store(sequence + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    fRestFromTick.store(rest.fromTick, std::memory_order_relaxed);
    fRestFromUs.store(rest.fromUs, std::memory_order_relaxed);
    fRestToUs.store(rest.toUs, std::memory_order_relaxed);
    fRestToPos.store(rest.toPos, std::memory_order_relaxed);
    fRestSequence.store(sequence + 2, std::memory_order_release);
}

bool TPlayThread::TakeSeek(TLoopPlan::TPos* pos) {
    uint64_t request = fSeek.exchange(0, std::memory_order_acq_rel);
    if (!(request & kSeekPending)) return false;
    *pos = {uint32_t(request >> kSeekPassShift), uint32_t(request)};
    return true;
}

bool TPlayThread::PauseHere() {
    PrepareSuspend();
    fProducer->fPauseRequest.store(0, std::memory_order_release);
    veldan::futex_wake(&fProducer->fPauseRequest, 1);
    return Suspend();
}

bool TPlayThread::RequestPending() const {
    return fProducer->fPauseRequest.load(std::memory_order_acquire) != 0 ||
           (fSeek.load(std::memory_order_acquire) & kSeekPending) != 0;
}

bool TPlayThread::SleepUntilDue(uint32_t tick, TSongClock* clock) {
    for (;;) {
        // Armed before the requests are read: one raised after the read bumps the
        // signal word past the token, and the sleep returns at once.
        const uint32_t token = ArmSleep();
        if (StopRequested()) return false;
        if (RequestPending()) return true;
        // A new rate re-times what is left of the rest from now on.
        const int32_t rate = fProducer->TempoRate();
        const int64_t now = veldan::system_time();
        if (rate != clock->Rate()) {
            clock->SetRate(now, rate);
            // The rest goes on from where it is now, at the new pace.
            if (fRest.fromUs != 0) {
                const uint32_t here =
                    tick_in_rest(fRest.fromTick, fRest.fromUs, tick, fRest.toUs, now);
                PublishRest({here, now, clock->TimeOf(tick), fRest.toPos});
            }
        }
        const int64_t deadline = clock->TimeOf(tick);
        if (now >= deadline) return true;
        if (!SleepUntil(deadline, token)) return false;
    }
}

int32_t TPlayThread::Execute() {
    TSMFProducer& producer = *fProducer;
    const TLoopPlan& plan = producer.fLoopPlan;
    TSprayToLanes lanes(producer, producer.fFadeLevel);
    TLoopPlan::TPos pos;
    TakeSeek(&pos);
    producer.Rewind();
    for (auto& track : producer.fTracks) track->SetCurrentTick(pos.tick);
    // Every play starts at full level: what a fade cut short left scaled comes back before
    // the first note.
    lanes.FadeLevelChanged(lanes.FadeLevel(), pos.tick);
    // Looked up before playing starts, and again only at a seek.
    int64_t fadeElapsedUs = plan.FadeElapsedUs(pos, producer.TempoMap());

    const int16_t division = producer.Division();
    TSongClock clock;
    const int64_t startUs = veldan::system_time();
    clock.Start(startUs, pos.tick, producer.Tempo(), division, producer.TempoRate());
    producer.fPlayStartedUs.store(startUs, std::memory_order_release);

    for (;;) {
        if (producer.fPauseRequest.load(std::memory_order_acquire)) {
            // Paused, the position is where play goes on.
            PublishRest({});
            if (!PauseHere()) return 0;
            // The owner silenced what sounded when it paused.
            lanes.ForgetSounding();
            // kept: the rest that was cut by the pause is not carried over; the events of
            // the tick being waited for go out at once.
            clock.Start(veldan::system_time(), pos.tick, producer.Tempo(), division,
                        producer.TempoRate());
        }
        if (TakeSeek(&pos)) {
            PublishRest({});
            for (auto& track : producer.fTracks) track->SetCurrentTick(pos.tick);
            // The owner silences what sounds before it seeks.
            lanes.ForgetSounding();
            producer.ChaseTo(pos.tick, lanes, &fChaseState);
            fadeElapsedUs = plan.FadeElapsedUs(pos, producer.TempoMap());
            clock.Start(veldan::system_time(), pos.tick, producer.Tempo(), division,
                        producer.TempoRate());
        }
        const uint32_t pass = pos.pass;
        const uint32_t stopTick = pos.tick;
        if (!producer.LoopStep(&pos, fadeElapsedUs, lanes, &fChaseState)) break;
        if (pos.pass != pass) {
            // The loop's start is due when its end was: the clock goes on without a gap.
            clock.Start(clock.TimeOf(stopTick), pos.tick, producer.Tempo(), division, clock.Rate());
            PublishPos(pos);
        }
        uint32_t wait = producer.SprayTick(pos.tick, lanes);
        if (StopRequested()) return 0;
        // A Set Tempo takes effect from its own tick.
        if (producer.Tempo() != clock.Tempo()) clock.SetTempo(pos.tick, producer.Tempo());
        const uint32_t next = producer.NextTick(pos, wait, &fadeElapsedUs);
        if (next == TSMFTrack::kNoEvent) break;
        const uint32_t sent = pos.tick;
        pos.tick = next;
        // Before the awaited tick, so that no reader sees the awaited tick without its rest.
        PublishRest({sent, clock.TimeOf(sent), clock.TimeOf(next), pack_pos(pos)});
        PublishPos(pos);
        if (!SleepUntilDue(pos.tick, &clock)) return 0;
    }
    PublishRest({});
    producer.SongEnded();
    return 0;
}
