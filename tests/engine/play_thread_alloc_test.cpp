// The play thread allocates nothing while music plays, seeks with chase among it: every
// allocation of this test program is counted when it happens on the thread named
// "PlayThread". (Not under a sanitizer, whose own allocator must stay in place.)

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/engine/chain_fixture.h"
#include "tests/support/smf_builder.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUILL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QUILL_SANITIZED 1
#endif
#endif

#ifndef QUILL_SANITIZED

namespace {

std::atomic<bool> gWatching{false};
std::atomic<int> gPlayThreadAllocations{0};

bool on_play_thread() {
    char name[16] = {};
    return pthread_getname_np(pthread_self(), name, sizeof name) == 0 &&
           std::strcmp(name, "PlayThread") == 0;
}

// The pair of the malloc in operator new below.
[[gnu::noinline]] void release(void* p) { std::free(p); }

}  // namespace

void* operator new(std::size_t size) {
    if (gWatching.load(std::memory_order_relaxed) && on_play_thread())
        gPlayThreadAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }

TEST(PlayThreadMemory, PlayingSeekingWithChaseAndRetimingAllocateNothing) {
    TSmfBuilder smf(1, 96);
    TTrackBuilder& track = smf.AddTrack();
    for (int bar = 0; bar < 64; ++bar) {
        const uint8_t channel = uint8_t(bar % 16);
        track.Program(bar == 0 ? 0 : 24, channel, uint8_t(bar)).Control(0, channel, 7, 90);
        track.Control(0, channel, 101, 0).Control(0, channel, 100, 0).Control(0, channel, 6, 12);
        track.Control(0, channel, 99, 1)
            .Control(0, channel, 98, uint8_t(bar))
            .Control(0, channel, 6, 3);
        track.Event(0, {uint8_t(0xE0 | channel), 0, 0x50}).NoteOn(0, channel, 60, 1);
        track.Tempo(0, uint32_t(400000 + bar * 1000)).NoteOff(24, channel, 60);
    }
    TChainFixture f;
    f.producer.SetChase(true);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.SetTempoRate(400);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    gWatching.store(true);
    for (int round = 0; round < 50; ++round) {
        f.producer.SetCurrentTick(uint32_t(round * 997) % f.producer.CountTicks());
        f.producer.SetTempoRate(300 + round % 7 * 50);
        if (round % 10 == 0) {
            f.producer.Pause();
            f.producer.Play();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }, std::chrono::seconds(20)));
    gWatching.store(false);
    EXPECT_EQ(gPlayThreadAllocations.load(), 0);
}

TEST(PlayThreadMemory, JumpingBackThroughALoopAndFadingAllocateNothing) {
    TSmfBuilder smf(1, 96);
    TTrackBuilder& track = smf.AddTrack().Tempo(0, 100000).Control(0, 0, 111, 0);
    for (int step = 0; step < 16; ++step) {
        const uint8_t channel = uint8_t(step % 16);
        track.Program(0, channel, uint8_t(step)).Control(0, channel, 7, 90);
        track.NoteOn(0, channel, uint8_t(60 + step), 100).NoteOff(24, channel, uint8_t(60 + step));
    }
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    TLoopSettings loops;
    loops.on = true;
    loops.times = 5;
    loops.fadeSeconds = 1;
    f.producer.SetLoopSettings(loops);
    ASSERT_TRUE(f.producer.LoopPlan().IsActive());
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    gWatching.store(true);
    for (int round = 0; round < 10; ++round) {
        f.producer.SetPlayedTick(uint64_t(round) * 211 % f.producer.CountPlayedTicks());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }, std::chrono::seconds(20)));
    gWatching.store(false);
    EXPECT_EQ(gPlayThreadAllocations.load(), 0);
}

#endif
