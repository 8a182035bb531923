#include "midi/local_producer.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>

#include "midi/midi_defs.h"

TMidiLocalProducer::TMidiLocalProducer(std::string name)
    : TMidiProducer(std::move(name)), fConnections(new TConnectionList) {}

TMidiLocalProducer::~TMidiLocalProducer() {
    // While this object is whole, so that backends can take their ports back.
    Unregister();
    for (TMidiConsumer* consumer : Connections()) Disconnect(consumer);
    delete fConnections.load();
}

int32_t TMidiLocalProducer::Connect(TMidiConsumer* consumer) {
    if (!consumer) return -1;
    {
        std::lock_guard lock(fWriteLock);
        const TConnectionList* current = fConnections.load();
        if (std::ranges::find(current->consumers, consumer) != current->consumers.end()) return -1;
        auto* next = new TConnectionList(*current);
        next->consumers.push_back(consumer);
        Publish(next);
    }
    {
        std::lock_guard lock(consumer->fProducersLock);
        consumer->fProducers.push_back(this);
    }
    consumer->ProducerConnected(this);
    return 0;
}

int32_t TMidiLocalProducer::Disconnect(TMidiConsumer* consumer) {
    {
        std::lock_guard lock(fWriteLock);
        const TConnectionList* current = fConnections.load();
        if (std::ranges::find(current->consumers, consumer) == current->consumers.end()) return -1;
        auto* next = new TConnectionList(*current);
        std::erase(next->consumers, consumer);
        Publish(next);
    }
    {
        std::lock_guard lock(consumer->fProducersLock);
        std::erase(consumer->fProducers, this);
    }
    consumer->ProducerDisconnected(this);
    return 0;
}

void TMidiLocalProducer::Publish(TConnectionList* next) {
    std::unique_ptr<TConnectionList> old(fConnections.exchange(next));
    // A spray that loaded the old list before the exchange is still counted in fSprays;
    // one that starts after it sees the new list. Sprays are short, so this wait is too.
    while (fSprays.load() != 0) std::this_thread::yield();
}

bool TMidiLocalProducer::IsConnected(const TMidiConsumer* consumer) const {
    std::lock_guard lock(fWriteLock);
    const TConnectionList* current = fConnections.load();
    return std::ranges::find(current->consumers, consumer) != current->consumers.end();
}

std::vector<TMidiConsumer*> TMidiLocalProducer::Connections() const {
    std::lock_guard lock(fWriteLock);
    return fConnections.load()->consumers;
}

int32_t TMidiLocalProducer::AttachSink(TMidiPortSink* sink) {
    if (!sink) return -1;
    std::lock_guard lock(fWriteLock);
    const TConnectionList* current = fConnections.load();
    if (std::ranges::find(current->sinks, sink) != current->sinks.end()) return -1;
    auto* next = new TConnectionList(*current);
    next->sinks.push_back(sink);
    Publish(next);
    return 0;
}

int32_t TMidiLocalProducer::DetachSink(TMidiPortSink* sink) {
    std::lock_guard lock(fWriteLock);
    const TConnectionList* current = fConnections.load();
    if (std::ranges::find(current->sinks, sink) == current->sinks.end()) return -1;
    auto* next = new TConnectionList(*current);
    std::erase(next->sinks, sink);
    Publish(next);
    return 0;
}

void TMidiLocalProducer::SprayData(const uint8_t* data, size_t length, bool atomic,
                                   int64_t time) const {
    if (length == 0) return;
    fSprays.fetch_add(1);
    const TConnectionList* route = fConnections.load();
    const int port = Port();
    if (port == 0) {
        for (TMidiConsumer* consumer : route->consumers)
            consumer->Receive(data, length, atomic, time);
    } else {
        for (TMidiConsumer* consumer : route->consumers)
            consumer->ReceiveOnPort(port, data, length, atomic, time);
    }
    for (TMidiPortSink* sink : route->sinks) sink->Send(data, length, time);
    fSprays.fetch_sub(1);
}

void TMidiLocalProducer::SprayChannelMessage(uint8_t status, uint8_t channel, uint8_t data1,
                                             uint8_t data2, size_t length, int64_t time) const {
    const uint8_t bytes[3] = {uint8_t(status | (channel & 0x0F)), uint8_t(data1 & 0x7F),
                              uint8_t(data2 & 0x7F)};
    SprayData(bytes, length, true, time);
}

void TMidiLocalProducer::SprayNoteOff(uint8_t channel, uint8_t note, uint8_t velocity,
                                      int64_t time) const {
    SprayChannelMessage(midi::kNoteOff, channel, note, velocity, 3, time);
}

void TMidiLocalProducer::SprayNoteOn(uint8_t channel, uint8_t note, uint8_t velocity,
                                     int64_t time) const {
    SprayChannelMessage(midi::kNoteOn, channel, note, velocity, 3, time);
}

void TMidiLocalProducer::SprayKeyPressure(uint8_t channel, uint8_t note, uint8_t pressure,
                                          int64_t time) const {
    SprayChannelMessage(midi::kKeyPressure, channel, note, pressure, 3, time);
}

void TMidiLocalProducer::SprayControlChange(uint8_t channel, uint8_t controller, uint8_t value,
                                            int64_t time) const {
    SprayChannelMessage(midi::kControlChange, channel, controller, value, 3, time);
}

void TMidiLocalProducer::SprayProgramChange(uint8_t channel, uint8_t program, int64_t time) const {
    SprayChannelMessage(midi::kProgramChange, channel, program, 0, 2, time);
}

void TMidiLocalProducer::SprayChannelPressure(uint8_t channel, uint8_t pressure,
                                              int64_t time) const {
    SprayChannelMessage(midi::kChannelPressure, channel, pressure, 0, 2, time);
}

void TMidiLocalProducer::SprayPitchBend(uint8_t channel, uint8_t lsb, uint8_t msb,
                                        int64_t time) const {
    SprayChannelMessage(midi::kPitchBend, channel, lsb, msb, 3, time);
}

void TMidiLocalProducer::SpraySystemExclusive(const void* data, size_t length, int64_t time) const {
    static constexpr uint8_t kStart = midi::kSysExStart;
    SprayPieces(&kStart, 1, static_cast<const uint8_t*>(data), length, true, time);
}

void TMidiLocalProducer::SprayPieces(const uint8_t* head, size_t headLength, const uint8_t* body,
                                     size_t bodyLength, bool atomic, int64_t time) const {
    fSprays.fetch_add(1);
    const TConnectionList* route = fConnections.load();
    const int port = Port();
    for (TMidiConsumer* consumer : route->consumers)
        consumer->ReceivePieces(port, head, headLength, body, bodyLength, atomic, time);
    if (!route->sinks.empty()) {
        const TJoinedPieces joined(head, headLength, body, bodyLength);
        for (TMidiPortSink* sink : route->sinks) sink->Send(joined.Data(), joined.Length(), time);
    }
    fSprays.fetch_sub(1);
}

void TMidiLocalProducer::SpraySystemCommon(uint8_t status, uint8_t data1, uint8_t data2,
                                           int64_t time) const {
    size_t length = 1;
    if (status == 0xF1 || status == 0xF3)
        length = 2;
    else if (status == 0xF2)
        length = 3;
    const uint8_t bytes[3] = {status, data1, data2};
    SprayData(bytes, length, true, time);
}

void TMidiLocalProducer::SpraySystemRealTime(uint8_t status, int64_t time) const {
    SprayData(&status, 1, true, time);
}

void TMidiLocalProducer::SprayTempoChange(int32_t beatsPerMinute, int64_t time) const {
    if (beatsPerMinute <= 0) return;
    uint32_t usPerBeat = uint32_t(60000000 / beatsPerMinute);
    const uint8_t bytes[6] = {
        midi::kMetaEvent,         midi::kMetaTempo,        3,
        uint8_t(usPerBeat >> 16), uint8_t(usPerBeat >> 8), uint8_t(usPerBeat)};
    SprayData(bytes, sizeof bytes, true, time);
}
