#include "veldan/base/clock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace veldan {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

int64_t system_time() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

bool futex_wait_until(std::atomic<uint32_t>* word, uint32_t expected, int64_t deadlineUs) {
    timespec deadline;
    timespec* timeout = nullptr;
    if (deadlineUs >= 0) {
        deadline.tv_sec = deadlineUs / 1000000;
        deadline.tv_nsec = (deadlineUs % 1000000) * 1000;
        timeout = &deadline;
    }
    // FUTEX_WAIT_BITSET takes an absolute CLOCK_MONOTONIC deadline, so a late wake-up
    // never pushes later deadlines back.
    long rc = syscall(SYS_futex, reinterpret_cast<uint32_t*>(word),
                      FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected, timeout, nullptr,
                      FUTEX_BITSET_MATCH_ANY);
    return !(rc == -1 && errno == ETIMEDOUT);
}

void futex_wake(std::atomic<uint32_t>* word, int count) {
    syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAKE | FUTEX_PRIVATE_FLAG, count,
            nullptr, nullptr, 0);
}

}  // namespace veldan
