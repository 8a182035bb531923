// Loads arbitrary bytes as a MIDI file with chase on, walks every event as the play thread
// would, and asks the chase index for the state at a few places, sending it as a seek would.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/chase_index.h"
#include "engine/rmid.h"
#include "engine/smf_producer.h"

namespace {

class TTouchEveryByte : public TSMFEventSink {
  public:
    void Event(const TSMFEvent& e) override {
        for (uint32_t i = 0; i < e.length; ++i) sum += e.data[i];
        sum += e.status + e.port + e.tick;
    }
    uint64_t sum = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // As a file is loaded: out of an RMID wrapper first.
    std::vector<uint8_t> file(data, data + size);
    std::string error;
    if (unwrap_rmid(&file, &error) != 0) return 0;
    TSMFProducer producer;
    producer.SetChase(true);
    if (producer.SetTo(std::move(file)) != 0) return 0;
    if (!producer.HasChaseIndex() && producer.CountTracks() > 0) __builtin_trap();
    TTouchEveryByte sink;
    producer.Walk(sink);
    // The index again, as a seek uses it: the state at the start, the middle and the end.
    TChaseIndex index(producer);
    TChaseIndex::TState state;
    index.Prepare(&state);
    for (uint32_t tick : {0u, producer.CountTicks() / 2, producer.CountTicks(), 0xFFFFFFFFu}) {
        index.StateAt(tick, &state);
        index.Send(state, tick, sink);
    }
    std::string title;
    producer.GetTitle(&title);
    producer.TempoMap().TickToUs(producer.CountTicks(), 100);
    for (size_t i = 0; i < producer.CountTracks(); ++i)
        producer.TrackAt(i).WaitTick(producer.CountTicks() / 2);
    return 0;
}
