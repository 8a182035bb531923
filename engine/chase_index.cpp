#include "engine/chase_index.h"

#include <algorithm>

#include "engine/smf_producer.h"
#include "midi/midi_defs.h"

// Keeps the events that leave a lasting channel state, and snapshots as they pass.
class TChaseIndex::TCollector : public TSMFEventSink {
  public:
    explicit TCollector(TChaseIndex& index) : fIndex(index) { fState.Clear(); }

    void Event(const TSMFEvent& e) override {
        switch (e.status & 0xF0) {
            case midi::kControlChange:
                // Channel-mode messages (all sound off, reset, local, omni, poly) are acts,
                // not settings.
                if (e.data[0] >= 120) return;
                break;
            case midi::kProgramChange:
            case midi::kChannelPressure:
            case midi::kPitchBend:
                break;
            default:
                return;
        }
        if (fIndex.fEvents.size() % kSnapshotEvery == 0) fIndex.fSnapshots.push_back(fState);
        const TEvent event{e.tick, uint8_t(e.port & 1), e.status, e.data[0],
                           uint8_t(e.length > 1 ? e.data[1] : 0)};
        fIndex.fEvents.push_back(event);
        Apply(event, &fState);
    }

  private:
    TChaseIndex& fIndex;
    TState fState;
};

void TChaseIndex::TState::Clear() {
    for (auto& port : ports)
        for (TChannel& channel : port) {
            channel.controllers.fill(kUnset);
            channel.program = kUnset;
            channel.pitchBend = kUnset;
            channel.pressure = kUnset;
        }
}

TChaseIndex::TChaseIndex(TSMFProducer& producer) {
    TCollector collector(*this);
    producer.Walk(collector);
}

void TChaseIndex::Apply(const TEvent& event, TState* state) {
    TChannel& channel = state->ports[event.port][event.status & 0x0F];
    switch (event.status & 0xF0) {
        case midi::kControlChange:
            channel.controllers[event.data0 & 0x7F] = event.data1;
            break;
        case midi::kProgramChange:
            channel.program = event.data0;
            break;
        case midi::kChannelPressure:
            channel.pressure = event.data0;
            break;
        case midi::kPitchBend:
            channel.pitchBend = int16_t(event.data1 << 7 | event.data0);
            break;
        default:
            break;
    }
}

void TChaseIndex::StateAt(uint32_t tick, TState* state) const {
    // The first event at or after tick stays out.
    const auto end = std::lower_bound(fEvents.begin(), fEvents.end(), tick,
                                      [](const TEvent& e, uint32_t t) { return e.tick < t; });
    const size_t count = size_t(end - fEvents.begin());
    if (fSnapshots.empty()) {
        state->Clear();
        return;
    }
    const size_t snapshot = std::min(count / kSnapshotEvery, fSnapshots.size() - 1);
    *state = fSnapshots[snapshot];
    for (size_t i = snapshot * kSnapshotEvery; i < count; ++i) Apply(fEvents[i], state);
}
