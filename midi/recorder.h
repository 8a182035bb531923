#pragma once
// TMidiRecorder: a consumer that writes down every event it receives, with its arrival
// time, into storage reserved up front, so recording never allocates on the receive
// thread. Used for --trace and by tests and benchmarks that check what left the chain.
//
// Threads: the receive thread appends; any thread may read the first Count() entries
// while recording goes on (each entry is complete before the count that covers it).

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "midi/local_consumer.h"

class TMidiRecorder : public TMidiLocalConsumer {
  public:
    struct TEntry {
        int64_t arrivalUs;  // CLOCK_MONOTONIC when the receive thread took the event
        int64_t time;       // the time stamp it was sprayed with
        uint32_t offset;    // into the byte store
        uint32_t length;
    };

    // Keeps at most maxEvents events and maxBytes bytes of them (default: 4 per event);
    // what does not fit is counted in Dropped().
    TMidiRecorder(std::string name, size_t maxEvents, size_t maxBytes = 0);
    ~TMidiRecorder() override;

    void Data(const uint8_t* data, size_t length, bool atomic, int64_t time) override;

    size_t Count() const { return fCount.load(std::memory_order_acquire); }
    std::span<const TEntry> Entries() const { return {fEntries.get(), Count()}; }
    const uint8_t* BytesOf(const TEntry& entry) const { return fBytes.get() + entry.offset; }
    std::vector<uint8_t> EventBytes(size_t index) const;
    uint64_t Dropped() const { return fDropped.load(std::memory_order_relaxed); }
    // Only while nothing is being sent here.
    void Clear();

  private:
    std::unique_ptr<TEntry[]> fEntries;
    std::unique_ptr<uint8_t[]> fBytes;
    size_t fMaxEvents;
    size_t fMaxBytes;
    size_t fBytesUsed = 0;
    std::atomic<size_t> fCount{0};
    std::atomic<uint64_t> fDropped{0};
};

// "90 3c 64": bytes in lower-case hex, separated by single spaces.
std::string hex_bytes(const uint8_t* data, size_t length);
