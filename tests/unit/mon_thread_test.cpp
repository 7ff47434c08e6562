#include "endpoints/mon_thread.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <json/value.h>

#include "core/shared/log_ring.h"
#include "core/shared/shared_words.h"
#include "endpoints/proxy_srt.h"
#include "tests/support/files.h"
#include "tests/support/printed.h"
#include "tests/unit/fake_clock.h"

// The one that nobody sets; the time of day stands still beside it.
extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const std::uint64_t seconds = clock == CLOCK_MONOTONIC ? fake_clock::now_us / 1'000'000 : 0;
    *time = {.tv_sec = static_cast<time_t>(seconds), .tv_nsec = 0};
    return 0;
}

extern "C" time_t time(time_t *) noexcept {
    return 0;
}

extern "C" unsigned sleep(unsigned seconds) {
    fake_clock::sleepFor(std::uint64_t{seconds} * 1'000'000);
    return 0;
}

namespace {

// Notes at which second of the stream it was asked for what.
class NotingEndpoint : public proxy_srt_t {
public:
    void update_stats(StatsDocument *, std::uint32_t clear) override {
        if (second() < no_memory_until) {
            Json::throwRuntimeError("no memory for a text");
        }
        samples += std::to_string(second()) + (clear == 0 ? " " : "! ");
    }
    void clear_stats(StatsDocument *) override { ++clears; }
    int status_line(std::string *line) override {
        asked += std::to_string(second()) + " ";
        *line = "line at " + std::to_string(second());
        return second() < silent_until ? 0 : 1;
    }
    static long second() { return static_cast<long>(fake_clock::now_us / 1'000'000) - 1000; }

    std::string samples, asked;
    int clears = 0;
    long silent_until = 0, no_memory_until = 0;
};

class MonThread : public testing::Test {
protected:
    void runFor(long seconds) {
        fake_clock::now_us = 1'000'000'000;
        fake_clock::slept = [&, seconds](std::uint64_t) {
            if (NotingEndpoint::second() >= seconds) {
                args.stop = 1;
            }
        };
        EXPECT_EQ(mon_thread_entry(&args), nullptr);
    }

    NotingEndpoint endpoint;
    LogRing log{10};
    MonitorArgs args{.endpoint = &endpoint, .log = &log, .stats = nullptr};
};

TEST_F(MonThread, SamplesEveryTwoSecondsBetweenTwoClearings) {
    EXPECT_EQ(printedBy([&] { runFor(7); }).substr(0, 20), "mon_thread_entry: E\n");
    EXPECT_EQ(endpoint.samples, "2 4 6 ");
    EXPECT_EQ(endpoint.clears, 2);
}

TEST_F(MonThread, MemoryThatRunsOutCostsTheSampleOnly) {
    endpoint.no_memory_until = 5;
    const std::string printed = printedBy([&] { runFor(7); });
    EXPECT_NE(printed.find("No memory for the statistics\n"), std::string::npos);
    EXPECT_EQ(endpoint.samples, "6 ");
}

// The line is due after six seconds, then every 301; without a client it is lost, not late.
TEST_F(MonThread, LogsEachLineThatIsDueWhileThereIsAClient) {
    endpoint.silent_until = 300;
    runFor(620);
    EXPECT_EQ(endpoint.asked, "6 307 608 ");
    const std::string logged = readFile("/tmp/proxy.log");
    EXPECT_EQ(logged.find("line at 6\n"), std::string::npos);
    EXPECT_NE(logged.find(": line at 307\n"), std::string::npos);
    EXPECT_NE(logged.find(": line at 608\n"), std::string::npos);
}

TEST_F(MonThread, EndsBeforeItsFirstSampleOrAtTheStopFlagOfTheProcess) {
    runFor(2);
    EXPECT_EQ(endpoint.samples, "");
    EXPECT_EQ(endpoint.clears, 2);
    stop_flag = 1;
    args.stop = 0;
    runFor(1000);
    EXPECT_EQ(NotingEndpoint::second(), 0);
}

}  // namespace
