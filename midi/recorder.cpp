#include "midi/recorder.h"

#include <cstring>

#include "veldan/base/clock.h"

TMidiRecorder::TMidiRecorder(std::string name, size_t maxEvents, size_t maxBytes)
    : TMidiLocalConsumer(std::move(name)) {
    fEntries.reserve(maxEvents);
    fBytes.reserve(maxBytes ? maxBytes : maxEvents * 4);
}

TMidiRecorder::~TMidiRecorder() { StopReceiving(); }

void TMidiRecorder::Data(const uint8_t* data, size_t length, bool, int64_t time) {
    int64_t now = veldan::system_time();
    if (fEntries.size() == fEntries.capacity() ||
        fBytes.capacity() - fBytes.size() < length) {
        ++fDropped;
        return;
    }
    fEntries.push_back({now, time, uint32_t(fBytes.size()), uint32_t(length)});
    fBytes.insert(fBytes.end(), data, data + length);
}

std::vector<uint8_t> TMidiRecorder::EventBytes(size_t index) const {
    const TEntry& entry = fEntries.at(index);
    return {BytesOf(entry), BytesOf(entry) + entry.length};
}

void TMidiRecorder::Clear() {
    fEntries.clear();
    fBytes.clear();
    fDropped = 0;
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
