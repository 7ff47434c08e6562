#include "core/pacer.h"

#include <gtest/gtest.h>

#include <algorithm>

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
    pacer.advance(bytes);
    while (pacer.wait()) {
    }
    return now_us - before;
}

TEST(Pacer, OneMessageTakesItsTimeAtTheRate) {
    const std::tuple<const char *, std::uint32_t, std::uint64_t, std::uint64_t> rows[] = {
        {"no rate", 0, 0, 0},
        {"8 Mbit/s", 8'000'000, 1316, 1320},
        {"a bit takes whole nanoseconds", 3'000'000, 3505, 3510},  // 333 ns, not 333.3
        {"above 1 Gbit/s", 1'000'000'001, 0, 0},
        {"negative counts as above", static_cast<std::uint32_t>(-5), 0, 0},
        {"product wraps at 32 bits", 1000, 1'938'065, 1'938'085},
    };
    for (const auto &[name, rate, least_us, most_us] : rows) {
        now_us = 1'000'000;
        Pacer pacer(rate);
        const std::uint64_t took = pace(pacer, 1316);
        EXPECT_GE(took, least_us) << name;
        EXPECT_LE(took, most_us) << name;
    }
}

TEST(Pacer, LateDataGoesOutAtOnceUntilTheDeadlineHasCaughtUp) {
    now_us = 0;
    Pacer pacer(8'000'000);
    now_us += 13'160;  // the stream stalled for ten messages
    for (int message = 0; message < 11; ++message) {
        EXPECT_EQ(pace(pacer, 1316) == 0, message < 10);
    }
}

TEST(Pacer, EachSleepIsHalfOfWhatIsLeftAndASecondAtMost) {
    now_us = 0;
    Pacer pacer(8'000'000);
    Pacer slow(2460);  // a message takes 4.28 seconds
    std::vector<std::uint64_t> sleeps;
    fake_clock::slept = [&](std::uint64_t us) { sleeps.push_back(us - 1); };
    pace(pacer, 1316);
    sleeps.resize(3);
    EXPECT_EQ(sleeps, (std::vector<std::uint64_t>{658, 328, 164}));
    pace(slow, 1316);
    fake_clock::slept = [](std::uint64_t) {};
    EXPECT_EQ(*std::max_element(sleeps.begin(), sleeps.end()), 1'000'000U);
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
