#pragma once
// TMidiEventQueue: a bounded multi-producer, single-consumer queue of raw MIDI events
// (Vyukov's array queue: one sequence number per slot, compare-and-swap on the write
// index). Pushing copies the event into a preallocated slot: no lock, no allocation for
// events of up to kInlineBytes (every channel message, the reset messages and most
// SysEx); a longer SysEx is copied to the heap and still arrives whole.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

class TMidiEventQueue {
public:
    static constexpr size_t kInlineBytes = 96;

    // capacity is rounded up to a power of two.
    explicit TMidiEventQueue(size_t capacity);
    ~TMidiEventQueue();

    // Any thread. False when the queue is full.
    bool TryPush(const uint8_t* data, size_t length, bool atomic, int64_t time);

    // The consumer thread only. Calls handler(data, length, atomic, time) for the oldest
    // event and returns true, or returns false when the queue is empty.
    template <typename Handler>
    bool TryPop(Handler&& handler);

    size_t Capacity() const { return fMask + 1; }

private:
    struct alignas(64) TSlot {
        std::atomic<uint64_t> sequence;
        int64_t time;
        uint32_t length;
        bool atomic;
        uint8_t* heap;  // owns the bytes when length > kInlineBytes
        uint8_t bytes[kInlineBytes];
    };
    static_assert(sizeof(TSlot) == 128);

    std::unique_ptr<TSlot[]> fSlots;
    size_t fMask;
    alignas(64) std::atomic<uint64_t> fWriteIndex{0};
    alignas(64) uint64_t fReadIndex = 0;
};

template <typename Handler>
bool TMidiEventQueue::TryPop(Handler&& handler) {
    TSlot& slot = fSlots[fReadIndex & fMask];
    if (slot.sequence.load(std::memory_order_acquire) != fReadIndex + 1) return false;
    const uint8_t* data = slot.heap ? slot.heap : slot.bytes;
    handler(data, size_t(slot.length), slot.atomic, slot.time);
    delete[] slot.heap;
    slot.heap = nullptr;
    slot.sequence.store(fReadIndex + fMask + 1, std::memory_order_release);
    ++fReadIndex;
    return true;
}
