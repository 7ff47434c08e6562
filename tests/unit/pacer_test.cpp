#include "core/pacer.h"

#include <gtest/gtest.h>

#include "tests/unit/fake_clock.h"

using fake_clock::now_us;

extern "C" int clock_gettime(clockid_t, timespec *time) noexcept {
    time->tv_sec = static_cast<time_t>(now_us / 1'000'000);
    time->tv_nsec = static_cast<long>(now_us % 1'000'000 * 1000);
    return 0;
}

extern "C" int usleep(useconds_t us) {
    // A sleep takes a little longer than asked, so that the deadline is reached.
    fake_clock::sleepFor(us + 1);
    return 0;
}

namespace {

constexpr std::uint64_t kWrap = std::uint64_t{1} << 32;

// Microseconds that pacing one message took.
std::uint64_t pace(Pacer &pacer, std::uint32_t bytes) {
    const std::uint64_t before = now_us;
    pacer.pace(bytes);
    return now_us - before;
}

TEST(Pacer, OneMessageTakesItsTimeAtTheRate) {
    const struct {
        const char *name;
        std::uint32_t rate, bytes;
        std::uint64_t least_us, most_us;
    } rows[] = {
        {"no rate", 0, 1316, 0, 0},
        {"8 Mbit/s", 8'000'000, 1316, 1316, 1320},
        {"a bit takes whole nanoseconds", 3'000'000, 1316, 3505, 3510},  // 333 ns, not 333.3
        {"above 1 Gbit/s", 1'000'000'001, 1316, 0, 0},
        {"negative counts as above", static_cast<std::uint32_t>(-5), 1316, 0, 0},
        {"product wraps at 32 bits", 1000, 1316, 1'938'065, 1'938'085},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        now_us = 1'000'000;
        Pacer pacer(row.rate);
        const std::uint64_t took = pace(pacer, row.bytes);
        EXPECT_GE(took, row.least_us);
        EXPECT_LE(took, row.most_us);
    }
}

TEST(Pacer, LateDataGoesOutAtOnceUntilTheDeadlineHasCaughtUp) {
    now_us = 0;
    Pacer pacer(8'000'000);
    now_us += 1316 * 10;  // the stream stalled for ten messages
    int unpaced = 0;
    while (pace(pacer, 1316) == 0) {
        ++unpaced;
    }
    EXPECT_EQ(unpaced, 10);
}

TEST(Pacer, EachSleepIsHalfOfWhatIsLeft) {
    now_us = 0;
    Pacer pacer(8'000'000);
    std::vector<std::uint64_t> sleeps;
    fake_clock::slept = [&](std::uint64_t us) { sleeps.push_back(us - 1); };
    pacer.pace(1316);
    fake_clock::slept = [](std::uint64_t) {};
    ASSERT_GT(sleeps.size(), 3U);
    EXPECT_EQ(sleeps[0], 658U);
    EXPECT_EQ(sleeps[1], 328U);
    EXPECT_EQ(sleeps[2], 164U);
}

// Whether the deadline is level with the clock or behind it, a wrap of the 32-bit count
// never makes a message wait longer than its own time.
TEST(Pacer, WrapOfTheClockHoldsNothingUp) {
    for (const std::uint64_t lag_us : {0U, 700U, 5000U, 2'000'000U}) {
        SCOPED_TRACE(lag_us);
        now_us = kWrap - 20'000 - lag_us;
        Pacer pacer(8'000'000);
        now_us += lag_us;
        for (int message = 0; message < 40; ++message) {
            ASSERT_LE(pace(pacer, 1316), 1330U) << message;
            now_us += lag_us == 0 ? 600 : 1300;  // a lagging deadline does not catch up
        }
        EXPECT_GT(now_us, kWrap);
    }
}

}  // namespace
