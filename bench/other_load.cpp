#include "bench/other_load.h"

#include <array>
#include <ctime>
#include <fstream>
#include <numeric>
#include <string>

#include <unistd.h>

#include "sim/clock.h"

namespace bench {
namespace {

double seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Time of all cores that was not idle, from the first line of /proc/stat: user, nice,
// system, idle, iowait, irq, softirq, steal.
double busySeconds() {
    constexpr std::size_t kIdle = 3;
    constexpr std::size_t kIoWait = 4;
    std::ifstream file("/proc/stat");
    std::string label;
    std::array<double, 8> ticks{};
    file >> label;
    for (double &count : ticks) {
        file >> count;
    }
    const double all = std::accumulate(ticks.begin(), ticks.end(), 0.0);
    return (all - ticks[kIdle] - ticks[kIoWait]) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace

OtherLoad::OtherLoad(const Contender &watched)
    : contender(watched), start_s(seconds(CLOCK_MONOTONIC)), others_start_s(othersSeconds()) {}

double OtherLoad::cores() const {
    return (othersSeconds() - others_start_s) / (seconds(CLOCK_MONOTONIC) - start_s);
}

double OtherLoad::othersSeconds() const {
    return busySeconds() - contender.cpuSeconds() - seconds(CLOCK_PROCESS_CPUTIME_ID);
}

}  // namespace bench
