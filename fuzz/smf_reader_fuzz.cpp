// Loads arbitrary bytes as a MIDI file and walks every event as the play thread would.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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
    if (producer.SetTo(std::move(file)) != 0) return 0;
    TTouchEveryByte sink;
    producer.Walk(sink);
    std::string title;
    producer.GetTitle(&title);
    producer.TempoMap().TickToUs(producer.CountTicks(), 100);
    for (size_t i = 0; i < producer.CountTracks(); ++i)
        producer.TrackAt(i).WaitTick(producer.CountTicks() / 2);
    return 0;
}
