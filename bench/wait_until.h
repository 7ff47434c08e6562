// The one way to wait for something to become true.
#pragma once

#include <chrono>
#include <thread>

namespace bench {

// False if `limit` passed first.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace bench
