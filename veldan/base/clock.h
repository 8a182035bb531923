#pragma once
// Monotonic time and futex waits: the two primitives every real-time thread here sleeps on.

#include <atomic>
#include <cstdint>

namespace veldan {

// Microseconds of CLOCK_MONOTONIC; the one clock of the player.
int64_t system_time();

// Blocks while *word == expected, until woken or until deadlineUs (CLOCK_MONOTONIC,
// absolute; a negative deadline waits without limit). Returns false on timeout.
// Never allocates; spurious returns are possible, so callers re-check their condition.
bool futex_wait_until(std::atomic<uint32_t>* word, uint32_t expected, int64_t deadlineUs);

// Wakes up to count waiters on word.
void futex_wake(std::atomic<uint32_t>* word, int count);

}  // namespace veldan
