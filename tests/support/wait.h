#pragma once
// Bounded waits for tests: they fail with a message instead of hanging.

#include <chrono>
#include <functional>
#include <thread>

inline bool wait_for(const std::function<bool()>& condition,
                     std::chrono::milliseconds timeout = std::chrono::milliseconds(5000)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
