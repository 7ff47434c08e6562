// What arrived at the receiving end: how much, how late, and what is missing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace bench {

// One span of a stream.
struct Window {
    std::uint64_t payloads = 0;
    std::uint64_t bytes = 0;
    std::uint64_t lost = 0;         // sequence numbers between first and last that never came
    std::vector<double> delays_us;  // from sending to arrival, sorted

    // `share` from 0 to 1. 0 if nothing arrived.
    [[nodiscard]] double delayUs(double share) const;
};

// Threads: one takes, another opens and ends windows; `mutex` is between them.
class Recorder {
public:
    void take(const char *message, std::size_t bytes, std::uint64_t arrival_ns);

    // Forgets what arrived so far.
    void startWindow();
    Window endWindow();

    // Arrival of the first payload ever, CLOCK_MONOTONIC; 0 before it.
    [[nodiscard]] std::uint64_t firstArrivalNs() const;
    [[nodiscard]] std::uint64_t payloads() const;  // since the window's start

private:
    mutable std::mutex mutex;
    Window window;                       // guarded by mutex
    std::uint64_t first_sequence = 0;    // guarded by mutex; in the window
    std::uint64_t last_sequence = 0;     // guarded by mutex; in the window
    std::uint64_t first_arrival_ns = 0;  // guarded by mutex
};

// The middle one; the mean of the two in the middle of an even number. 0 of nothing.
double median(std::vector<double> values);

}  // namespace bench
