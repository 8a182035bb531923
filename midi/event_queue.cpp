#include "midi/event_queue.h"

#include <bit>
#include <cstring>

TMidiEventQueue::TMidiEventQueue(size_t capacity)
    : fSlots(new TSlot[std::bit_ceil(capacity < 2 ? size_t(2) : capacity)]),
      fMask(std::bit_ceil(capacity < 2 ? size_t(2) : capacity) - 1) {
    for (size_t i = 0; i <= fMask; ++i) {
        fSlots[i].sequence.store(i, std::memory_order_relaxed);
        fSlots[i].heap = nullptr;
    }
}

TMidiEventQueue::~TMidiEventQueue() {
    for (size_t i = 0; i <= fMask; ++i) delete[] fSlots[i].heap;
}

bool TMidiEventQueue::TryPush(const uint8_t* data, size_t length, bool atomic, int64_t time) {
    uint64_t index = fWriteIndex.load(std::memory_order_relaxed);
    TSlot* slot;
    for (;;) {
        slot = &fSlots[index & fMask];
        uint64_t sequence = slot->sequence.load(std::memory_order_acquire);
        int64_t diff = int64_t(sequence) - int64_t(index);
        if (diff == 0) {
            if (fWriteIndex.compare_exchange_weak(index, index + 1, std::memory_order_relaxed))
                break;
        } else if (diff < 0) {
            return false;
        } else {
            index = fWriteIndex.load(std::memory_order_relaxed);
        }
    }
    slot->time = time;
    slot->length = uint32_t(length);
    slot->atomic = atomic;
    uint8_t* target = slot->bytes;
    if (length > kInlineBytes) {
        slot->heap = new uint8_t[length];
        target = slot->heap;
    }
    std::memcpy(target, data, length);
    slot->sequence.store(index + 1, std::memory_order_release);
    return true;
}
