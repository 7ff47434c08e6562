// A clock that a test moves. Defined in a test program, these take the place of the C
// library's functions for the whole program.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>

#include <unistd.h>

namespace fake_clock {

inline std::uint64_t now_us = 0;
inline std::function<void(std::uint64_t)> slept = [](std::uint64_t) {};  // microseconds

inline void sleepFor(std::uint64_t us) {
    now_us += us;
    slept(us);
}

}  // namespace fake_clock
