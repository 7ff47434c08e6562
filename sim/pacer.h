// Spaces messages evenly: each at its own moment, however long the last one took.
#pragma once

#include <chrono>
#include <cstdint>

namespace sim {

// Threads: one.
class Pacer {
public:
    using Clock = std::chrono::steady_clock;

    explicit Pacer(std::uint64_t rate_bps) : rate(rate_bps) {}

    // Starts anew from this moment: nothing is made up for.
    void restart() {
        start = Clock::now();
        bits = 0;
    }
    // When the next `bytes` are due; counts them as gone.
    Clock::time_point next(std::size_t bytes) {
        const auto offset_ns = static_cast<double>(bits) * 1e9 / static_cast<double>(rate);
        bits += bytes * 8;
        return start + std::chrono::nanoseconds(static_cast<std::int64_t>(offset_ns));
    }

private:
    const std::uint64_t rate;
    Clock::time_point start = Clock::now();
    std::uint64_t bits = 0;  // since start
};

}  // namespace sim
