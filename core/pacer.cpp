#include "core/pacer.h"

#include <algorithm>
#include <ctime>

#include <unistd.h>

namespace {

constexpr std::uint32_t kLongestSleepUs = 1'000'000;

std::uint64_t monotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

std::uint32_t nanosecondsPerBit(std::uint32_t rate_bps) {
    return rate_bps == 0 ? 1 : static_cast<std::uint32_t>(std::uint64_t{1'000'000'000} / rate_bps);
}

}  // namespace

Pacer::Pacer(std::uint32_t rate_bps)
    : rate(rate_bps), ns_per_bit(nanosecondsPerBit(rate_bps)), true_next(monotonicMicroseconds()),
      next(static_cast<std::uint32_t>(true_next)) {}

void Pacer::advance(std::uint32_t bytes) {
    const std::uint32_t step_us = bytes * 8 * ns_per_bit / 1000;
    next += step_us;
    true_next += step_us;
}

bool Pacer::wait() const {
    if (rate == 0) {
        return false;
    }
    const std::uint64_t true_now = monotonicMicroseconds();
    const auto now = static_cast<std::uint32_t>(true_now);
    if (next <= now || true_next <= true_now) {
        return false;
    }
    usleep(std::min((next - now) / 2, kLongestSleepUs));
    return true;
}
