#pragma once
// TMidiLocalProducer: sends events to every connected consumer.
//
// The connection list is an immutable snapshot swapped atomically: a spray walks the
// snapshot it loaded without a lock, and Connect/Disconnect (any thread, serialised by a
// lock of their own) free an old snapshot only once no spray can still be walking it.
// A spray allocates nothing on its way to local consumers, whatever the event's length:
// a SysEx goes to them as two pieces (0xF0, then the caller's data) that their queues
// put together. Port sinks and other consumers take one buffer, so for them a SysEx is
// put together once (TJoinedPieces: on the stack, on the heap when long).
//
// A producer may also have port sinks: the ports a system backend gives it (an ALSA
// sequencer port, a JACK output port). Each sink gets every spray once, whatever the
// number of consumers behind it, after the consumers; sinks live in the same snapshot.
//
// Raw form of events on the way: channel and system messages as their bytes; SysEx as
// 0xF0 followed by the data given to SpraySystemExclusive (a closing 0xF7 only when the
// caller's data holds one). Consumers that talk to real MIDI add a missing 0xF7.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "midi/endpoint.h"

// A system port that speaks for one local producer.
class TMidiPortSink {
  public:
    virtual ~TMidiPortSink() = default;
    // Called on the spraying thread for every event; must not block.
    virtual void Send(const uint8_t* data, size_t length, int64_t time) = 0;
};

class TMidiLocalProducer : public TMidiProducer {
  public:
    explicit TMidiLocalProducer(std::string name = {});
    ~TMidiLocalProducer() override;

    bool IsLocal() const override { return true; }

    // The port of a two-port output this producer speaks for: 0 for port A (the default),
    // 1 for port B. Consumers that have sixteen channels per port play it on port B's.
    // Any thread; a spray already under way may still go out on the old port.
    void SetPort(int port) { fPort.store(port, std::memory_order_relaxed); }
    int Port() const { return fPort.load(std::memory_order_relaxed); }

    // 0, or -1 when consumer is null or already connected (Connect) / not connected
    // (Disconnect).
    int32_t Connect(TMidiConsumer* consumer);
    int32_t Disconnect(TMidiConsumer* consumer);
    bool IsConnected(const TMidiConsumer* consumer) const;
    std::vector<TMidiConsumer*> Connections() const;

    // For system backends; any thread but a real-time one. 0, or -1 when sink is null or
    // already attached (Attach) / not attached (Detach). DetachSink returns once no spray
    // can still reach the sink.
    int32_t AttachSink(TMidiPortSink* sink);
    int32_t DetachSink(TMidiPortSink* sink);

    // Any thread; wait-free apart from the consumers' Receive.
    void SprayData(const uint8_t* data, size_t length, bool atomic, int64_t time) const;
    void SprayNoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) const;
    void SprayNoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) const;
    void SprayKeyPressure(uint8_t channel, uint8_t note, uint8_t pressure, int64_t time) const;
    void SprayControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) const;
    void SprayProgramChange(uint8_t channel, uint8_t program, int64_t time) const;
    void SprayChannelPressure(uint8_t channel, uint8_t pressure, int64_t time) const;
    void SprayPitchBend(uint8_t channel, uint8_t lsb, uint8_t msb, int64_t time) const;
    void SpraySystemExclusive(const void* data, size_t length, int64_t time) const;
    void SpraySystemCommon(uint8_t status, uint8_t data1, uint8_t data2, int64_t time) const;
    void SpraySystemRealTime(uint8_t status, int64_t time) const;
    // Sent as the meta event 0xFF 0x51 with microseconds per quarter note.
    void SprayTempoChange(int32_t beatsPerMinute, int64_t time) const;

  private:
    struct TConnectionList {
        std::vector<TMidiConsumer*> consumers;
        std::vector<TMidiPortSink*> sinks;
    };
    void Publish(TConnectionList* next);
    // The event is head then body; sinks get it in one piece.
    void SprayPieces(const uint8_t* head, size_t headLength, const uint8_t* body, size_t bodyLength,
                     bool atomic, int64_t time) const;
    void SprayChannelMessage(uint8_t status, uint8_t channel, uint8_t data1, uint8_t data2,
                             size_t length, int64_t time) const;

    mutable std::mutex fWriteLock;
    std::atomic<TConnectionList*> fConnections;
    mutable std::atomic<int32_t> fSprays{0};
    std::atomic<int> fPort{0};
};
