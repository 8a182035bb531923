#include "engine/play_thread.h"

#include "engine/smf_producer.h"
#include "midi/midi_defs.h"
#include "veldan/base/clock.h"

namespace {

constexpr uint64_t kSeekPending = uint64_t(1) << 32;

// Sends the song's events through the producer's lanes, as they come due.
class TSprayToLanes : public TSMFEventSink {
  public:
    explicit TSprayToLanes(const TSMFProducer& producer) : fProducer(producer) {}

    void Event(const TSMFEvent& e) override {
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
};

}  // namespace

TPlayThread::TPlayThread(TSMFProducer* producer)
    : veldan::TThread("PlayThread", kPriority), fProducer(producer) {
    // The index cannot change while this thread exists.
    if (producer->fChaseIndex) producer->fChaseIndex->Prepare(&fChaseState);
}

TPlayThread::~TPlayThread() { Stop(); }

void TPlayThread::RequestSeek(uint32_t tick) {
    fSeek.store(kSeekPending | tick, std::memory_order_release);
    fCurrentTick.store(tick, std::memory_order_release);
    Interrupt();
}

bool TPlayThread::TakeSeek(uint32_t* tick) {
    uint64_t request = fSeek.exchange(0, std::memory_order_acq_rel);
    if (!(request & kSeekPending)) return false;
    *tick = uint32_t(request);
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
        if (rate != clock->Rate()) clock->SetRate(now, rate);
        const int64_t deadline = clock->TimeOf(tick);
        if (now >= deadline) return true;
        if (!SleepUntil(deadline, token)) return false;
    }
}

int32_t TPlayThread::Execute() {
    TSMFProducer& producer = *fProducer;
    TSprayToLanes lanes(producer);
    uint32_t tick = 0;
    TakeSeek(&tick);
    producer.Rewind();
    for (auto& track : producer.fTracks) track->SetCurrentTick(tick);

    const int16_t division = producer.Division();
    TSongClock clock;
    const int64_t startUs = veldan::system_time();
    clock.Start(startUs, tick, producer.Tempo(), division, producer.TempoRate());
    producer.fPlayStartedUs.store(startUs, std::memory_order_release);

    for (;;) {
        if (producer.fPauseRequest.load(std::memory_order_acquire)) {
            if (!PauseHere()) return 0;
            // kept: the rest that was cut by the pause is not carried over; the events of
            // the tick being waited for go out at once.
            clock.Start(veldan::system_time(), tick, producer.Tempo(), division,
                        producer.TempoRate());
        }
        uint32_t seekTick;
        if (TakeSeek(&seekTick)) {
            tick = seekTick;
            for (auto& track : producer.fTracks) track->SetCurrentTick(tick);
            producer.ChaseTo(tick, lanes, &fChaseState);
            clock.Start(veldan::system_time(), tick, producer.Tempo(), division,
                        producer.TempoRate());
        }
        uint32_t wait = producer.SprayTick(tick, lanes);
        if (StopRequested()) return 0;
        // A Set Tempo takes effect from its own tick.
        if (producer.Tempo() != clock.Tempo()) clock.SetTempo(tick, producer.Tempo());
        if (wait == TSMFTrack::kNoEvent) break;
        tick += wait;
        fCurrentTick.store(tick, std::memory_order_release);
        if (!SleepUntilDue(tick, &clock)) return 0;
    }
    producer.SongEnded();
    return 0;
}
