#include "midi/recorder.h"

#include <cstring>
#include <stdexcept>

#include "veldan/base/clock.h"

TMidiRecorder::TMidiRecorder(std::string name, size_t maxEvents, size_t maxBytes)
    : TMidiLocalConsumer(std::move(name)),
      fEntries(new TEntry[maxEvents]),
      fBytes(new uint8_t[maxBytes ? maxBytes : maxEvents * 4]),
      fMaxEvents(maxEvents),
      fMaxBytes(maxBytes ? maxBytes : maxEvents * 4) {}

TMidiRecorder::~TMidiRecorder() { StopReceiving(); }

void TMidiRecorder::Data(const uint8_t* data, size_t length, bool, int64_t time) {
    int64_t now = veldan::system_time();
    size_t count = fCount.load(std::memory_order_relaxed);
    if (count == fMaxEvents || fMaxBytes - fBytesUsed < length) {
        fDropped.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    fEntries[count] = {now, time, uint32_t(fBytesUsed), uint32_t(length)};
    std::memcpy(fBytes.get() + fBytesUsed, data, length);
    fBytesUsed += length;
    fCount.store(count + 1, std::memory_order_release);
}

std::vector<uint8_t> TMidiRecorder::EventBytes(size_t index) const {
    if (index >= Count()) throw std::out_of_range("no such recorded event");
    const TEntry& entry = fEntries[index];
    return {BytesOf(entry), BytesOf(entry) + entry.length};
}

void TMidiRecorder::Clear() {
    WaitIdle(1000000);
    fCount.store(0, std::memory_order_release);
    fBytesUsed = 0;
    fDropped.store(0, std::memory_order_relaxed);
}

std::string hex_bytes(const uint8_t* data, size_t length) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 3);
    for (size_t i = 0; i < length; ++i) {
        if (i) text += ' ';
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0x0F];
    }
    return text;
}
