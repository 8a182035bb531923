#pragma once
// TMidiRecorder: a consumer that writes down every event it receives, with its arrival
// time, into storage reserved up front, so recording never allocates on the receive
// thread. Used for --trace and by tests and benchmarks that check what left the chain.

#include <cstdint>
#include <string>
#include <vector>

#include "midi/local_consumer.h"

class TMidiRecorder : public TMidiLocalConsumer {
public:
    struct TEntry {
        int64_t arrivalUs;  // CLOCK_MONOTONIC when the receive thread took the event
        int64_t time;       // the time stamp it was sprayed with
        uint32_t offset;    // into Bytes()
        uint32_t length;
    };

    // Keeps at most maxEvents events and maxBytes bytes of them; what does not fit is
    // counted in Dropped().
    TMidiRecorder(std::string name, size_t maxEvents, size_t maxBytes = 0);
    ~TMidiRecorder() override;

    void Data(const uint8_t* data, size_t length, bool atomic, int64_t time) override;

    // Read only after WaitIdle() or once the senders are done.
    const std::vector<TEntry>& Entries() const { return fEntries; }
    const uint8_t* BytesOf(const TEntry& entry) const { return fBytes.data() + entry.offset; }
    std::vector<uint8_t> EventBytes(size_t index) const;
    uint64_t Dropped() const { return fDropped; }
    void Clear();

private:
    std::vector<TEntry> fEntries;
    std::vector<uint8_t> fBytes;
    uint64_t fDropped = 0;
};

// "90 3c 64": bytes in lower-case hex, separated by single spaces.
std::string hex_bytes(const uint8_t* data, size_t length);
