// The one way in which tests and the simulated unit wait for something.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace sim {

inline constexpr std::chrono::milliseconds kDefaultLimit{30'000};

// Asks again and again, every two milliseconds, until `condition` holds, and returns
// true; false once `limit` is over and a last question had the answer no.
inline bool waitUntil(const std::function<bool()> &condition,
                      std::chrono::milliseconds limit = kDefaultLimit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace sim
