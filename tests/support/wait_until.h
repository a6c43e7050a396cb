// Waiting for a condition, with a deadline.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

// Asks every millisecond until `condition` holds; false when it does not within a minute:
// sanitizers and a busy machine make the work of a second long.
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
