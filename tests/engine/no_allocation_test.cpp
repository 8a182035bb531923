// While a song plays, the threads that carry it (the play thread and every receive
// thread of the chain) must not touch the heap. This executable replaces the global
// operator new and counts the allocations made on those threads, which it knows by
// name: "PlayThread" and TMidiLocalConsumer::kReceiveThreadName.
//
// The recording consumers at the end of the chain are receive threads too and are
// counted with the rest; they reserve their storage up front, so they add nothing.
// Only operator new is counted: the chain's code reaches the heap through it alone.

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

#include "tests/engine/chain_fixture.h"
#include "tests/support/smf_builder.h"

namespace {

std::atomic<bool> gCounting{false};
std::atomic<uint64_t> gChainAllocations{0};

bool on_chain_thread() {
    char name[16] = {};
    if (prctl(PR_GET_NAME, name, 0, 0, 0) != 0) return false;
    return std::strcmp(name, "PlayThread") == 0 ||
           std::strcmp(name, TMidiLocalConsumer::kReceiveThreadName) == 0;
}

void note_allocation() {
    if (gCounting.load(std::memory_order_relaxed) && on_chain_thread())
        gChainAllocations.fetch_add(1, std::memory_order_relaxed);
}

void* allocate(size_t size) {
    note_allocation();
    if (void* block = std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}

void* allocate_aligned(size_t size, std::align_val_t alignment) {
    note_allocation();
    const size_t align = std::max(size_t(alignment), sizeof(void*));
    const size_t rounded = (std::max<size_t>(size, 1) + align - 1) / align * align;
    if (void* block = std::aligned_alloc(align, rounded)) return block;
    throw std::bad_alloc();
}

struct TCounting {
    TCounting() {
        gChainAllocations.store(0);
        gCounting.store(true);
    }
    ~TCounting() { gCounting.store(false); }
};

}  // namespace

void* operator new(size_t size) { return allocate(size); }
void* operator new[](size_t size) { return allocate(size); }
void* operator new(size_t size, std::align_val_t alignment) {
    return allocate_aligned(size, alignment);
}
void* operator new[](size_t size, std::align_val_t alignment) {
    return allocate_aligned(size, alignment);
}
// The library's own nothrow forms would pair a sanitizer's allocator with the free below.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    note_allocation();
    return std::malloc(size ? size : 1);
}
void* operator new[](size_t size, const std::nothrow_t& nothrow) noexcept {
    return operator new(size, nothrow);
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    try {
        return allocate_aligned(size, alignment);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](size_t size, std::align_val_t alignment,
                     const std::nothrow_t& nothrow) noexcept {
    return operator new(size, alignment, nothrow);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { std::free(block); }

namespace {

std::vector<uint8_t> sysex(size_t length, uint8_t seed) {
    std::vector<uint8_t> data(length);
    data[0] = 0x7D;  // non-commercial id: no reset, nothing the chain acts on
    for (size_t i = 1; i + 1 < length; ++i) data[i] = uint8_t((seed + i) & 0x7F);
    data[length - 1] = 0xF7;
    return data;
}

size_t count_sysex(const TMidiRecorder& recorder, size_t length) {
    size_t count = 0;
    for (const auto& entry : recorder.Entries())
        if (entry.length == length && recorder.BytesOf(entry)[0] == 0xF0) ++count;
    return count;
}

TEST(ChainAllocation, TheCounterSeesAnAllocationOnAThreadNamedLikeAReceiveThread) {
    TCounting counting;
    std::thread([] {
        prctl(PR_SET_NAME, TMidiLocalConsumer::kReceiveThreadName, 0, 0, 0);
        auto* block = new std::vector<uint8_t>(4000);
        delete block;
    }).join();
    EXPECT_GE(gChainAllocations.load(), 1u);
}

TEST(ChainAllocation, ASysExHeavySongPlaysThroughTheChainOnBothPortsWithoutAllocating) {
    // Short (inline), medium (past the small sizes of every hop) and long (past a kilobyte)
    // SysEx, mixed with notes, on port A and on port B.
    constexpr int kRounds = 150;
    const size_t kLengths[] = {20, 300, 700, 3000};
    TChainFixture f;
    TSmfBuilder smf(1, 960);
    smf.AddTrack().Tempo(0, 250000);
    for (uint8_t port = 0; port < 2; ++port) {
        TTrackBuilder& track = smf.AddTrack();
        track.Port(0, port);
        for (int round = 0; round < kRounds; ++round) {
            for (size_t length : kLengths) track.SysEx(1, sysex(length, uint8_t(round)));
            track.NoteOn(0, port, 60, 100).Control(0, port, 7, 100).NoteOff(1, port, 60);
        }
    }
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    {
        TCounting counting;
        ASSERT_EQ(f.producer.Play(), 0);
        ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }, std::chrono::seconds(20)))
            << "the song did not end";
        f.Drain();
    }
    for (const TMidiRecorder* recorder : {&f.portA, &f.portB})
        for (size_t length : kLengths)
            EXPECT_EQ(count_sysex(*recorder, length + 1), size_t(kRounds))
                << recorder->Name() << ", SysEx of " << length << " bytes";
    EXPECT_EQ(gChainAllocations.load(), 0u);
}

// The owner's requests are carried out on the managers' receive threads: all notes off,
// mutes, a look at the table, while a song with system resets plays on both ports.
TEST(ChainAllocation, TheOwnersRequestsCostTheReceiveThreadsNoAllocation) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Tempo(0, 250000);
    const std::vector<uint8_t> gsReset = {0x41, 0x10, 0x42, 0x12, 0x40,
                                          0x00, 0x7F, 0x00, 0x41, 0xF7};
    for (uint8_t port = 0; port < 2; ++port) {
        TTrackBuilder& track = smf.AddTrack();
        track.Port(0, port);
        for (int round = 0; round < 100; ++round) {
            if (round % 10 == 0) track.SysEx(0, gsReset);
            for (uint8_t note = 60; note < 68; ++note) track.NoteOn(0, port, note, 100);
            for (uint8_t note = 60; note < 68; ++note)
                track.NoteOff(note == 60 ? 20 : 0, port, note);
        }
    }
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    int requests = 0;
    int32_t resets = 0;
    {
        TCounting counting;
        ASSERT_EQ(f.producer.Play(), 0);
        while (f.ended.load() == 0 && requests < 100000) {
            f.chain.QuickAllNotesOff();
            f.chain.SetMutedChannels(requests % 2, uint16_t(requests % 3 == 0 ? 0x0003 : 0));
            f.chain.NoteOnManager(requests % 2).SoundingNotes(uint8_t(requests % 2));
            resets |= f.chain.NoteOnManager(0).TakeSysResets();
            ++requests;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }, std::chrono::seconds(20)));
        f.Drain();
    }
    resets |= f.chain.NoteOnManager(0).TakeSysResets();
    EXPECT_GT(requests, 50);
    EXPECT_EQ(resets, 2) << "the song's GS resets were seen";
    EXPECT_EQ(gChainAllocations.load(), 0u);
}

}  // namespace
