#include "midi/event_queue.h"

#include <bit>
#include <cstring>

namespace {
size_t slot_count(size_t capacity) { return std::bit_ceil(capacity < 2 ? size_t(2) : capacity); }
}  // namespace

TMidiEventQueue::TMidiEventQueue(size_t capacity)
    : fSlots(new TSlot[slot_count(capacity)]),
      fBytes(new uint8_t[slot_count(capacity) * kBlockBytes]()),
      fMask(slot_count(capacity) - 1) {
    for (size_t i = 0; i <= fMask; ++i) fSlots[i].sequence.store(i, std::memory_order_relaxed);
}

TMidiEventQueue::TPush TMidiEventQueue::TryPush(std::initializer_list<TPiece> pieces, bool atomic,
                                                int64_t time, uint8_t kind) {
    size_t length = 0;
    for (const TPiece& piece : pieces) length += piece.second;
    if (length > MaxEventBytes()) return TPush::kTooLong;
    const size_t blocks = length == 0 ? 1 : (length + kBlockBytes - 1) / kBlockBytes;
    const size_t capacity = fMask + 1;
    uint64_t index = fWriteIndex.load(std::memory_order_relaxed);
    size_t firstBlock;
    size_t span;
    for (;;) {
        const size_t offset = size_t(index & fMask);
        // An event never wraps: it starts again at block 0 and holds the slots up to the end.
        firstBlock = offset + blocks <= capacity ? offset : 0;
        span = firstBlock == 0 && offset != 0 ? capacity - offset + blocks : blocks;
        const uint64_t last = index + span - 1;
        const uint64_t sequence = fSlots[last & fMask].sequence.load(std::memory_order_acquire);
        const int64_t diff = int64_t(sequence) - int64_t(last);
        if (diff == 0) {
            if (fWriteIndex.compare_exchange_weak(index, index + span, std::memory_order_relaxed))
                break;
        } else if (diff < 0) {
            return TPush::kFull;
        } else {
            index = fWriteIndex.load(std::memory_order_relaxed);
        }
    }
    uint8_t* target = fBytes.get() + firstBlock * kBlockBytes;
    for (const auto& [bytes, size] : pieces) {
        if (size) std::memcpy(target, bytes, size);
        target += size;
    }
    TSlot& slot = fSlots[index & fMask];
    slot.time = time;
    slot.length = uint32_t(length);
    slot.span = uint32_t(span);
    slot.firstBlock = uint32_t(firstBlock);
    slot.atomic = atomic;
    slot.kind = kind;
    slot.sequence.store(index + 1, std::memory_order_release);
    return TPush::kPushed;
}
