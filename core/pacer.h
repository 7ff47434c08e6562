// Spaces the decoder's datagrams to a bit rate by a running deadline.
//
// The deadline is never set back to the clock: data that comes late goes out at once
// until the deadline has caught up. Deadline and clock are 32-bit microseconds, compared
// plainly, so each wrap (every 71.6 minutes) could hold a wait for as long; a 64-bit
// deadline beside it ends the wait when the true time has come.
#pragma once

#include <cstdint>

// Threads: main thread only.
class Pacer {
public:
    // `rate_bps` 0 paces nothing; above 1,000,000,000 the deadline never moves.
    explicit Pacer(std::uint32_t rate_bps);

    // Moves the deadline by the time that `bytes` take.
    void advance(std::uint32_t bytes);

    // Sleeps for half of what is left to the deadline, a second at most. False, without a
    // sleep, once the deadline has come.
    [[nodiscard]] bool wait() const;

private:
    const std::uint32_t rate;        // bits per second, fixed at construction
    const std::uint32_t ns_per_bit;  // fixed at construction
    std::uint64_t true_next;         // microseconds of CLOCK_MONOTONIC
    std::uint32_t next;              // the same, wrapping
};
