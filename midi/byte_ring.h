#pragma once
// TByteRing: a single-producer, single-consumer ring of bytes with acquire/release
// positions, preallocated and locked in memory. The writer publishes a record with one
// Write after all its bytes are in place, so the reader never sees half of one.
// Positions count bytes from the start and never wrap (64 bits).
//
// Threads: Write and WriteSpace on the one writing thread (or under the writers' lock);
// Peek, Read, Skip and ReadSpace on the one reading thread. None blocks or allocates.

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <utility>

class TByteRing {
  public:
    // capacity is rounded up to a power of two.
    explicit TByteRing(size_t capacity)
        : fSize(std::bit_ceil(capacity)), fBytes(new uint8_t[fSize]()) {
        mlock(fBytes.get(), fSize);  // refused without the right: the ring still works
    }
    ~TByteRing() { munlock(fBytes.get(), fSize); }
    TByteRing(const TByteRing&) = delete;
    TByteRing& operator=(const TByteRing&) = delete;

    size_t WriteSpace() const {
        return fSize - size_t(fWrite.load(std::memory_order_relaxed) -
                              fRead.load(std::memory_order_acquire));
    }
    size_t ReadSpace() const {
        return size_t(fWrite.load(std::memory_order_acquire) -
                      fRead.load(std::memory_order_relaxed));
    }

    // Writes the pieces back to back and publishes them together; false (writing nothing)
    // when they do not fit.
    bool Write(std::initializer_list<std::pair<const void*, size_t>> pieces) {
        size_t total = 0;
        for (const auto& piece : pieces) total += piece.second;
        if (total > WriteSpace()) return false;
        uint64_t at = fWrite.load(std::memory_order_relaxed);
        for (const auto& [data, size] : pieces) {
            Copy(at, static_cast<const uint8_t*>(data), size);
            at += size;
        }
        fWrite.store(at, std::memory_order_release);
        return true;
    }

    // Copies size bytes without taking them; false when fewer are there.
    bool Peek(void* out, size_t size) const {
        if (size > ReadSpace()) return false;
        CopyOut(fRead.load(std::memory_order_relaxed), static_cast<uint8_t*>(out), size);
        return true;
    }
    // Takes size bytes, which the caller knows are there.
    void Read(void* out, size_t size) {
        CopyOut(fRead.load(std::memory_order_relaxed), static_cast<uint8_t*>(out), size);
        Skip(size);
    }
    void Skip(size_t size) {
        fRead.store(fRead.load(std::memory_order_relaxed) + size, std::memory_order_release);
    }

  private:
    void Copy(uint64_t at, const uint8_t* data, size_t size) {
        const size_t offset = size_t(at & (fSize - 1));
        const size_t first = std::min(size, fSize - offset);
        std::memcpy(fBytes.get() + offset, data, first);
        std::memcpy(fBytes.get(), data + first, size - first);
    }
    void CopyOut(uint64_t at, uint8_t* out, size_t size) const {
        const size_t offset = size_t(at & (fSize - 1));
        const size_t first = std::min(size, fSize - offset);
        std::memcpy(out, fBytes.get() + offset, first);
        std::memcpy(out + first, fBytes.get(), size - first);
    }

    const size_t fSize;
    std::unique_ptr<uint8_t[]> fBytes;
    alignas(64) std::atomic<uint64_t> fWrite{0};
    alignas(64) std::atomic<uint64_t> fRead{0};
};
