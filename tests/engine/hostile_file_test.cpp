// Files made to exhaust memory: the reader answers them with the file's error, in a child
// process whose address space is limited, so a failure cannot take the tests down.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "engine/smf_producer.h"
#include "tests/support/smf_builder.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUILL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QUILL_SANITIZED 1
#endif
#endif

namespace {

size_t address_space_in_use() {
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0;
    statm >> pages;
    return pages * size_t(sysconf(_SC_PAGESIZE));
}

// Runs body in a forked child allowed headroom bytes of address space beyond what it
// already holds. The child's exit code is body's: 0 when it got what it expected.
// What it prints to stderr shows in the test's output.
::testing::AssertionResult in_limited_child(size_t headroom, const std::function<int()>& body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return ::testing::AssertionFailure() << "fork failed";
    if (pid == 0) {
        const rlim_t limit = address_space_in_use() + headroom;
        const rlimit rl{limit, limit};
        if (setrlimit(RLIMIT_AS, &rl) != 0) _exit(90);
        int code = 91;
        try {
            code = body();
        } catch (const std::exception& e) {
            // As the program would: an exception out of the loader ends it.
            std::fprintf(stderr, "uncaught exception: %s\n", e.what());
        }
        _exit(code);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status))
        return ::testing::AssertionFailure() << "the child died of signal " << WTERMSIG(status);
    if (WEXITSTATUS(status) != 0)
        return ::testing::AssertionFailure() << "the child exited with " << WEXITSTATUS(status);
    return ::testing::AssertionSuccess();
}

// One track of length bytes: a single SysEx filling it, then End of Track.
std::vector<uint8_t> one_long_sysex(uint32_t length) {
    const uint32_t payload = length - 2 - 4 - 4;  // delta and F0, the length, End of Track
    std::vector<uint8_t> file = {'M', 'T', 'h', 'd', 0,  0,   0,   6,   0,
                                 0,   0,   1,   0,   96, 'M', 'T', 'r', 'k'};
    for (int shift = 24; shift >= 0; shift -= 8) file.push_back(uint8_t(length >> shift));
    const std::vector<uint8_t> head = {0x00,
                                       0xF0,
                                       uint8_t(0x80 | (payload >> 21)),
                                       uint8_t(0x80 | ((payload >> 14) & 0x7F)),
                                       uint8_t(0x80 | ((payload >> 7) & 0x7F)),
                                       uint8_t(payload & 0x7F)};
    file.insert(file.end(), head.begin(), head.end());
    file.resize(file.size() + payload, 0x11);
    file.insert(file.end(), {0x00, 0xFF, 0x2F, 0x00});
    return file;
}

// One track of length bytes, all of it two-byte events: delta 0 and a data byte that
// running status (none yet) leaves without a body.
std::vector<uint8_t> only_tiny_events(uint32_t length) {
    std::vector<uint8_t> file = {'M', 'T', 'h', 'd', 0,  0,   0,   6,   0,
                                 0,   0,   1,   0,   96, 'M', 'T', 'r', 'k'};
    for (int shift = 24; shift >= 0; shift -= 8) file.push_back(uint8_t(length >> shift));
    file.resize(file.size() + length - 4, 0x00);
    file.insert(file.end(), {0x00, 0xFF, 0x2F, 0x00});
    return file;
}

}  // namespace

TEST(HostileFile, ATrackLongInBytesButFewInEventsLoadsInModestMemory) {
#ifdef QUILL_SANITIZED
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit an address-space limit";
#endif
    // 128 MiB in one SysEx: a handful of events, however long the chunk.
    std::vector<uint8_t> file = one_long_sysex(128u << 20);
    EXPECT_TRUE(in_limited_child(64u << 20, [&] {
        TSMFProducer producer;
        if (producer.SetTo(std::move(file)) != 0) {
            std::fprintf(stderr, "refused: %s\n", producer.LastError().c_str());
            return 1;
        }
        return producer.TrackAt(0).CountEvents() == 2 ? 0 : 2;
    }));
}

TEST(HostileFile, MoreEventsThanMemoryHoldsIsRefusedWithTheReason) {
#ifdef QUILL_SANITIZED
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit an address-space limit";
#endif
    // 32 Mi events of 2 bytes: their index needs far more than the 64 MiB allowed.
    std::vector<uint8_t> file = only_tiny_events(64u << 20);
    EXPECT_TRUE(in_limited_child(64u << 20, [&] {
        TSMFProducer producer;
        if (producer.SetTo(std::move(file)) == 0) return 1;
        std::fprintf(stderr, "refused: %s\n", producer.LastError().c_str());
        if (producer.LastError().find("track 1: not enough memory") == std::string::npos) return 2;
        if (producer.CountTracks() != 0) return 3;
        // What was taken is given back: a small song still loads in the same process.
        TSmfBuilder smf;
        smf.AddTrack().NoteOn(0, 0, 60, 1);
        return producer.SetTo(smf.Bytes()) == 0 ? 0 : 4;
    }));
}
