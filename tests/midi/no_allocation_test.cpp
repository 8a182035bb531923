// Port B's way into the built-in synthesizer puts a two-byte tag in front of every event;
// the sending thread must not touch the heap for it, however long the SysEx. This
// executable replaces the global operator new and counts the allocations made on the
// sending thread, which it names "PlayThread" as the player's own sender is named.

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

#include "midi/local_producer.h"
#include "midi/synth.h"
#include "tests/support/temp_dir.h"

namespace {

std::atomic<bool> gCounting{false};
std::atomic<uint64_t> gSenderAllocations{0};

bool on_sending_thread() {
    char name[16] = {};
    if (prctl(PR_GET_NAME, name, 0, 0, 0) != 0) return false;
    return std::strcmp(name, "PlayThread") == 0;
}

void* allocate(size_t size) {
    if (gCounting.load(std::memory_order_relaxed) && on_sending_thread())
        gSenderAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* block = std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return allocate(size); }
void* operator new[](size_t size) { return allocate(size); }
// The library's own nothrow forms would pair a sanitizer's allocator with the free below.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](size_t size, const std::nothrow_t& nothrow) noexcept {
    return operator new(size, nothrow);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }

namespace {

void spray_from_play_thread(const TMidiLocalProducer& producer,
                            const std::vector<std::vector<uint8_t>>& messages) {
    std::thread([&] {
        prctl(PR_SET_NAME, "PlayThread", 0, 0, 0);
        for (int round = 0; round < 50; ++round) {
            for (const auto& message : messages)
                producer.SpraySystemExclusive(message.data(), message.size(), 0);
            producer.SprayNoteOn(0, 60, 1, 0);
            producer.SprayNoteOff(0, 60, 0, 0);
        }
    }).join();
}

TEST(SynthAllocation, TheCounterSeesAnAllocationOnAThreadNamedPlayThread) {
    gSenderAllocations.store(0);
    gCounting.store(true);
    std::thread([] {
        prctl(PR_SET_NAME, "PlayThread", 0, 0, 0);
        delete new std::vector<uint8_t>(100);
    }).join();
    gCounting.store(false);
    EXPECT_GE(gSenderAllocations.load(), 1u);
}

TEST(SynthAllocation, PortBSysExOfAnyLengthReachesTheSynthWithoutAllocatingOnTheSender) {
    TTempDir dir;
    TSynthConsumer::TOptions options;
    options.wavPath = (dir.Path() / "synth.wav").string();
    std::string error;
    std::unique_ptr<TSynthConsumer> synth = TSynthConsumer::Create(options, &error);
    ASSERT_TRUE(synth) << error;
    TMidiLocalProducer portB{"synth test B"};
    portB.SetPort(1);
    portB.Connect(synth.get());
    std::vector<std::vector<uint8_t>> messages;
    for (size_t length : {20, 300, 600, 3000}) {
        std::vector<uint8_t> message(length, 0x01);
        message.front() = 0x7D;  // non-commercial: nobody acts on it
        message.back() = 0xF7;
        messages.push_back(message);
    }
    gSenderAllocations.store(0);
    gCounting.store(true);
    spray_from_play_thread(portB, messages);
    gCounting.store(false);
    ASSERT_TRUE(synth->WaitIdle(5000000));
    EXPECT_EQ(synth->SendDrops(), 0u);
    EXPECT_EQ(gSenderAllocations.load(), 0u);
    synth->Finish(0);
}

}  // namespace
