#include "veldan/base/thread.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <thread>

namespace {

cpu_set_t own_cpus() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    sched_getaffinity(0, sizeof cpus, &cpus);
    return cpus;
}

// The CPUs a new thread at this priority may run on.
cpu_set_t cpus_at_priority(int32_t priority, bool* realTime) {
    cpu_set_t cpus;
    std::thread([&] {
        *realTime = veldan::apply_thread_priority(priority);
        cpus = own_cpus();
    }).join();
    return cpus;
}

}  // namespace

TEST(Thread, ThreadsBelowTheMusicPriorityKeepOffTheMusicCore) {
    cpu_set_t all = own_cpus();
    if (CPU_COUNT(&all) < 2) GTEST_SKIP() << "one CPU: nowhere else to go";
    const int music = veldan::music_cpu();
    ASSERT_TRUE(CPU_ISSET(music, &all));
    for (int32_t priority : {10, veldan::kRealTimePriority}) {
        bool realTime = false;
        cpu_set_t cpus = cpus_at_priority(priority, &realTime);
        EXPECT_FALSE(CPU_ISSET(music, &cpus)) << "priority " << priority;
        EXPECT_EQ(CPU_COUNT(&cpus), CPU_COUNT(&all) - 1) << "priority " << priority;
    }
}

TEST(Thread, MusicThreadsShareTheMusicCore) {
    bool realTime = false;
    cpu_set_t cpus = cpus_at_priority(veldan::kMusicPriority, &realTime);
    if (!realTime) GTEST_SKIP() << "real-time scheduling refused: no music core";
    EXPECT_EQ(CPU_COUNT(&cpus), 1);
    EXPECT_TRUE(CPU_ISSET(veldan::music_cpu(), &cpus));
}

TEST(Thread, AThreadMadeOffTheMusicCoreCanStillStartAMusicThread) {
    cpu_set_t all = own_cpus();
    if (CPU_COUNT(&all) < 2) GTEST_SKIP() << "one CPU: nowhere else to go";
    bool realTime = false;
    cpu_set_t cpus;
    std::thread([&] {
        veldan::apply_thread_priority(10);
        cpus = cpus_at_priority(veldan::kMusicPriority, &realTime);
    }).join();
    if (!realTime) GTEST_SKIP() << "real-time scheduling refused: no music core";
    EXPECT_EQ(CPU_COUNT(&cpus), 1);
    EXPECT_TRUE(CPU_ISSET(veldan::music_cpu(), &cpus));
}
