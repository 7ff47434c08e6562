// CLOCK_MONOTONIC as one number: what send times in a stream are told in.
#pragma once

#include <cstdint>
#include <ctime>

namespace sim {

inline std::uint64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace sim
