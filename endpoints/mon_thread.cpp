#include "endpoints/mon_thread.h"

#include <cstdio>
#include <ctime>
#include <exception>
#include <string>

#include <unistd.h>

#include "core/shared/log_ring.h"
#include "core/shared/shared_words.h"
#include "endpoints/proxy_srt.h"

namespace {

// Of a clock that nobody sets.
time_t monotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

constexpr time_t kFirstLineHeadStart = 295;  // seconds, so that the first line comes early
constexpr time_t kLineInterval = 300;
constexpr time_t kSampleInterval = 1;

// What cannot be told for want of memory is left out, this time.
template <typename Task>
void ifMemoryAllows(Task task) {
    try {
        task();
    } catch (const std::exception &) {  // jsoncpp has a type of its own for that
        puts("No memory for the statistics");
    }
}

// A line that is due while nobody is connected is not made up for later.
void logStatus(const MonitorArgs &args) {
    std::string line;
    if (args.endpoint->status_line(&line) != 0) {
        args.log->logPrintf("%s\n", line.c_str());
    }
}

}  // namespace

void *mon_thread_entry(void *argument) {
    const auto &args = *static_cast<const MonitorArgs *>(argument);
    printf("%s: E\n", "mon_thread_entry");
    time_t sampled = monotonicSeconds();
    time_t logged = sampled - kFirstLineHeadStart;
    ifMemoryAllows([&] { args.endpoint->clear_stats(args.stats); });
    while (args.stop == 0 && stop_flag == 0) {
        const time_t now = monotonicSeconds();
        if (now - sampled > kSampleInterval) {
            ifMemoryAllows([&] { args.endpoint->update_stats(args.stats, args.reserved); });
            sampled = now;
        }
        if (now - logged > kLineInterval) {
            logged = now;
            ifMemoryAllows([&] { logStatus(args); });
        }
        sleep(1);
    }
    ifMemoryAllows([&] { args.endpoint->clear_stats(args.stats); });
    printf("%s: X\n", "mon_thread_entry");
    return nullptr;
}
