// Waits for a condition, with a deadline.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

// Checks `condition` every millisecond until it holds; false if it does not within a minute, which
// is long enough for sanitizers on a busy machine.
inline bool WaitUntil(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
