#pragma once
// TMidiEventQueue: a bounded multi-producer, single-consumer queue of raw MIDI events
// (Vyukov's array queue: one sequence number per slot, compare-and-swap on the write
// index). Every slot owns kBlockBytes of one preallocated byte array; an event longer
// than that takes as many consecutive slots as its bytes need, reserved with the same
// one compare-and-swap, so a long SysEx is stored whole and contiguous like a short
// note. Nothing here locks or allocates after construction.
//
// Limit: an event longer than MaxEventBytes() (half the queue's bytes: 128 KiB at 4096
// slots) can never be taken; TryPush refuses it at once with kTooLong. Half, because an
// event does not wrap around the end of the array: the slots up to the end are skipped,
// and with any read position there is room for half of them in one piece.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <utility>

class TMidiEventQueue {
  public:
    static constexpr size_t kBlockBytes = 64;

    enum class TPush { kPushed, kFull, kTooLong };

    // capacity (in slots) is rounded up to a power of two, at least 2.
    explicit TMidiEventQueue(size_t capacity);

    using TPiece = std::pair<const uint8_t*, size_t>;

    // Any thread; lock-free. The event is the pieces back to back (a port tag, a SysEx's
    // 0xF0, its data), put together here; kFull when there is no room now. kind travels
    // beside the bytes, never in them, so that what an event says cannot change its kind.
    TPush TryPush(std::initializer_list<TPiece> pieces, bool atomic, int64_t time,
                  uint8_t kind = 0);
    TPush TryPush(const uint8_t* data, size_t length, bool atomic, int64_t time) {
        return TryPush({TPiece{data, length}}, atomic, time);
    }

    // The consumer thread only. Calls handler(data, length, atomic, time, kind) for the
    // oldest event and returns true, or returns false when the queue is empty. data stays
    // valid only during the call.
    template <typename Handler>
    bool TryPop(Handler&& handler);

    size_t Capacity() const { return fMask + 1; }
    size_t MaxEventBytes() const { return Capacity() / 2 * kBlockBytes; }

  private:
    struct alignas(64) TSlot {
        std::atomic<uint64_t> sequence;
        int64_t time;
        uint32_t length;
        uint32_t span;        // slots the event holds, this one first
        uint32_t firstBlock;  // where its bytes start: this slot's block, or block 0
        bool atomic;
        uint8_t kind;
    };

    std::unique_ptr<TSlot[]> fSlots;
    std::unique_ptr<uint8_t[]> fBytes;  // kBlockBytes for each slot, in slot order
    size_t fMask;
    alignas(64) std::atomic<uint64_t> fWriteIndex{0};
    alignas(64) uint64_t fReadIndex = 0;
};

template <typename Handler>
bool TMidiEventQueue::TryPop(Handler&& handler) {
    TSlot& slot = fSlots[fReadIndex & fMask];
    if (slot.sequence.load(std::memory_order_acquire) != fReadIndex + 1) return false;
    const uint32_t span = slot.span;
    handler(static_cast<const uint8_t*>(fBytes.get() + size_t(slot.firstBlock) * kBlockBytes),
            size_t(slot.length), slot.atomic, slot.time, slot.kind);
    // In order, the last one last: a sender that finds the last slot of its range free
    // knows that every slot before it is free too.
    for (uint32_t i = 0; i < span; ++i)
        fSlots[(fReadIndex + i) & fMask].sequence.store(fReadIndex + i + fMask + 1,
                                                        std::memory_order_release);
    fReadIndex += span;
    return true;
}
