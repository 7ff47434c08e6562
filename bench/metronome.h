// The pace of a stream: one tick a payload.
//
// Late by a little, the ticks that were missed follow at once, so that the rate holds;
// late by more than kForgiven, they are dropped, so that a stream that was held up goes
// on at its rate and not in a burst.
#pragma once

#include <cstdint>
#include <ctime>

#include "bench/stamp.h"
#include "sim/clock.h"

namespace bench {

class Metronome {
public:
    // Requires: `rate_mbit` above 0.
    explicit Metronome(std::uint64_t rate_mbit)
        : interval_ns(kPayloadBytes * 8 * 1000 / rate_mbit), next_ns(sim::monotonicNs()) {}

    void wait() {
        next_ns += interval_ns;
        const std::uint64_t now_ns = sim::monotonicNs();
        if (now_ns > next_ns + kForgivenNs) {
            next_ns = now_ns;
        } else if (now_ns + kLeastSleepNs < next_ns) {
            sleepUntil(next_ns);
        }
    }

private:
    static constexpr std::uint64_t kForgivenNs = 50'000'000;
    static constexpr std::uint64_t kLeastSleepNs = 40'000;  // less is sent a little early

    static void sleepUntil(std::uint64_t ns) {
        const timespec deadline{static_cast<time_t>(ns / 1'000'000'000),
                                static_cast<long>(ns % 1'000'000'000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
    }

    const std::uint64_t interval_ns;
    std::uint64_t next_ns;
};

}  // namespace bench
