// An encoder unit: the real executable between the route driver and real SRT receivers.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include <sched.h>
#include <sys/mount.h>

#include "sim/daemon.h"
#include "sim/lossy_relay.h"
#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/srt_receiver.h"
#include "tests/support/files.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
using sim::Daemon;
using sim::kMessageBytes;
using sim::PeerOptions;
using sim::SrtReceiver;
using sim::waitUntil;

const std::string kListener = "srt://0.0.0.0:5002?mode=listener&latency=120";
const PeerOptions kCaller{.port = 5002, .mode = sim::PeerMode::caller};

class Encoder : public testing::Test {
protected:
    Encoder() { driver.followCommands(true); }

    static bool arrives(const SrtReceiver &far_end, std::uint64_t messages = 100) {
        const std::uint64_t before = far_end.received().messages;
        return waitUntil([&] { return far_end.received().messages > before + messages; });
    }
    // Everything that came was whole units in order, nothing cut, doubled or mixed up.
    void expectWhole(const SrtReceiver &far_end) const {
        const auto &source = far_end.received().sources[ingress.id()];
        EXPECT_EQ(far_end.received().messagesOf(kMessageBytes), far_end.received().messages);
        EXPECT_EQ(source.reordered + source.duplicates + source.corrupt, 0U);
        EXPECT_EQ(far_end.received().foreign_bytes, 0U);
    }

    sim::RouteDriver driver;
    sim::RouteIngress ingress;
};

TEST_F(Encoder, SaysWhatItDoesInOrderAndTakesTheRouteDownAtTheEnd) {
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-2ZZ"});
    ASSERT_TRUE(arrives(far_end));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    std::string said;
    std::istringstream lines(daemon.standardOutput());
    for (std::string line; std::getline(lines, line);) {
        said += line.substr(line.find(" : ") == 15 ? 18 : 0) + "|";
    }
    EXPECT_EQ(said, "Startup|WX family detected|Using packed fs|Setting RR "
                    "scheduler|mode=caller|latency=120|latency 120|"
                    "SRT output opened: srt://127.0.0.1:5000?latency=120&mode=caller|"
                    "mon_thread_entry: E|mon_thread_entry: X|main exit|");
    EXPECT_EQ(daemon.countLines("srt mode 1"), 1);
    EXPECT_TRUE(waitUntil([&] { return driver.routeDowns() == 1; }));
    EXPECT_EQ(driver.commands().back().bytes.substr(0, 18), "service 3 active=0");
    expectWhole(far_end);
}

TEST_F(Encoder, BackupTakesOverAndEveryFailedOpeningIsLogged) {
    SrtReceiver primary(5000);
    SrtReceiver backup(5001);
    Daemon daemon({.primary = primary.uri(), .backup = backup.uri(), .product = "WX-1"});
    ASSERT_TRUE(arrives(primary));
    primary.breakOff();
    EXPECT_TRUE(arrives(backup));
    EXPECT_GE(daemon.countLines("srt_sendmsg: "), 1);
    backup.breakOff();
    // Both are gone: one line an attempt, alternating.
    ASSERT_TRUE(daemon.waitForLine(": SRT output failed: srt://127.0.0.1:5000", 2, 20s));
    ASSERT_TRUE(daemon.waitForLine(": SRT output failed: srt://127.0.0.1:5001", 2, 20s));
    primary.restart();
    EXPECT_TRUE(waitUntil([&] { return primary.received().messages > 100; }, 20s));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    expectWhole(primary);
}

TEST_F(Encoder, ListenerServesClientAfterClientAndKeepsNothingForThem) {
    Daemon daemon({.primary = kListener, .product = "WX-1"});
    ASSERT_TRUE(daemon.waitForLine("No client, waiting"));
    SrtReceiver far_end(kCaller);
    ASSERT_TRUE(arrives(far_end));
    EXPECT_EQ(daemon.countLines("new connection: 127.0.0.1:"), 1);
    far_end.breakOff();
    // Seen by the state test the listener goes on, seen by a send it is opened anew.
    ASSERT_TRUE(waitUntil([&] {
        return daemon.countLines("source disconnected") + daemon.countLines("srt_sendmsg: ") > 0;
    }));
    far_end.restart();
    EXPECT_TRUE(waitUntil([&] { return far_end.received().messages > 100; }, 15s));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    expectWhole(far_end);
}

TEST_F(Encoder, ThreadOfThePumpAloneIsRealTime) {
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1", .real_time = true});
    ASSERT_TRUE(arrives(far_end));
    int ordinary = 0;
    const std::string tasks = "/proc/" + std::to_string(daemon.pid()) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        const int tid = std::stoi(task.path().filename());
        sched_param parameters{};
        sched_getparam(tid, &parameters);
        const int policy = sched_getscheduler(tid) & ~SCHED_RESET_ON_FORK;
        if (tid == daemon.pid()) {
            if (policy != SCHED_RR) {
                GTEST_SKIP() << "this machine gives nobody real-time priority";
            }
            EXPECT_EQ(parameters.sched_priority, sched_get_priority_max(SCHED_RR));
        } else {
            EXPECT_EQ(policy, SCHED_OTHER);
            ++ordinary;
        }
    }
    EXPECT_GE(ordinary, 3);
}

TEST_F(Encoder, SilentEndingAndReturningDeviceHoldsUpNeitherStreamNorStop) {
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1"});
    ASSERT_TRUE(arrives(far_end));
    ingress.pause();
    ingress.end();
    ASSERT_TRUE(waitUntil([&] { return !ingress.isOpen(); }));
    ingress.comeBack();
    ingress.resume();
    ASSERT_TRUE(arrives(far_end));
    ingress.pause();
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(daemon.countLines("General error"), 0);
    EXPECT_EQ(daemon.countLines("SRT output opened"), 2);
    expectWhole(far_end);
}

TEST(EncoderDevice, PiecesOfAnySizeLeaveAsWholeUnitsAndTheRest) {
    for (const std::size_t piece : {188U, 1316U, 2000U, 13160U}) {
        SCOPED_TRACE(piece);
        sim::RouteDriver driver;
        sim::RouteIngress ingress({.piece_bytes = piece, .paused = true});
        SrtReceiver far_end(5000);
        Daemon daemon({.primary = far_end.uri(), .product = "WX-1"});
        ASSERT_TRUE(daemon.waitForLine("SRT output opened"));
        ingress.burst(300);
        EXPECT_TRUE(waitUntil([&] { return far_end.received().bytes == 300 * piece; }))
            << far_end.received().bytes;
        const auto &source = far_end.received().sources[ingress.id()];
        EXPECT_EQ(source.lost + source.reordered + source.duplicates + source.corrupt, 0U);
    }
}

TEST(EncoderDevice, FasterThanTheLinkEndsNothingAndCutsNothing) {
    sim::RouteDriver driver;
    sim::RouteIngress ingress({.rate_bps = 400'000'000});
    sim::LossyRelay link({.port = 5003, .target_port = 5000, .delay = 50ms});
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = "srt://127.0.0.1:5003?mode=caller&latency=120", .product = "WX-1"});
    ASSERT_TRUE(waitUntil([&] { return far_end.received().messages > 20000; }, 30s));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    const auto &source = far_end.received().sources[ingress.id()];
    EXPECT_EQ(source.reordered + source.duplicates + source.corrupt, 0U);
    EXPECT_EQ(far_end.received().messagesOf(kMessageBytes), far_end.received().messages);
}

// What a far end may do while the stream runs. However it ends, the backup has it then.
struct FarEndsWay {
    const char *name;
    void (*go)(SrtReceiver &);
};

void PrintTo(const FarEndsWay &way, std::ostream *out) {
    *out << way.name;
}

class EncoderFarEnd : public Encoder, public testing::WithParamInterface<FarEndsWay> {};

TEST_P(EncoderFarEnd, IsSurvivedAndAStopIsPrompt) {
    SrtReceiver primary(5000);
    SrtReceiver backup(5001);
    Daemon daemon({.primary = primary.uri(), .backup = backup.uri(), .product = "WX-1"});
    ASSERT_TRUE(arrives(primary));
    GetParam().go(primary);
    EXPECT_TRUE(waitUntil([&] { return backup.received().messages > 100; }, 15s));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    expectWhole(backup);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, EncoderFarEnd,
    testing::Values(FarEndsWay{"Freezes", [](SrtReceiver &end) { end.freeze(); }},
                    FarEndsWay{"Vanishes", [](SrtReceiver &end) { end.vanish(); }},
                    FarEndsWay{"BreaksOff", [](SrtReceiver &end) { end.breakOff(); }}),
    [](const auto &row) { return row.param.name; });

TEST_F(Encoder, FarEndThatReadsNothingHoldsUpNeitherStreamNorStop) {
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1"});
    ASSERT_TRUE(arrives(far_end));
    far_end.pause();
    ASSERT_TRUE(waitUntil(
        [&, before = ingress.writtenPieces()] { return ingress.writtenPieces() > before + 1000; }));
    far_end.resume();
    EXPECT_TRUE(arrives(far_end));
    far_end.pause();
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(daemon.countLines("SRT output opened"), 2);
}

TEST_F(Encoder, StopsPromptlyInTheMiddleOfAFrozenFarEnd) {
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1"});
    ASSERT_TRUE(arrives(far_end));
    far_end.freeze();
    const auto frozen = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - frozen > 2s; }));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST_F(Encoder, LossyLinkIsMadeGood) {
    sim::LossyRelay link({.port = 5003, .target_port = 5000, .loss_percent = 5, .delay = 100ms});
    SrtReceiver far_end({.port = 5000, .latency_ms = 3000});
    Daemon daemon({.primary = "srt://127.0.0.1:5003?mode=caller&latency=3000", .product = "WX-1"});
    ASSERT_TRUE(waitUntil([&] { return far_end.received().messages > 1000; }, 20s));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_GT(link.lost(), 20U);
    EXPECT_EQ(far_end.received().sources[ingress.id()].lost, 0U);
    expectWhole(far_end);
}

TEST(EncoderRoute, MissingIngressTakesTheRouteDownAgain) {
    sim::RouteDriver driver;
    Daemon daemon({.product = "WX-1"});
    EXPECT_EQ(daemon.waitForEnd(), 1);
    EXPECT_EQ(daemon.countLines("file not found: /dev/rt_ingress4"), 1);
    EXPECT_TRUE(waitUntil([&] { return driver.routeDowns() == 1; }));
    EXPECT_EQ(driver.routeUps(), 1);
}

TEST(EncoderRoute, DriverThatTakesHalfACommandEndsTheStartInOrder) {
    std::filesystem::create_directory("/tmp/full");
    ASSERT_EQ(mount("none", "/tmp/full", "tmpfs", 0, "size=4k"), 0);
    writeFile("/tmp/full/rt_cmd", "");
    writeFile("/tmp/full/rest", std::string(8192, 'x'));
    std::filesystem::create_symlink("/tmp/full/rt_cmd", "/dev/rt_cmd");
    Daemon daemon({.product = "WX-1"});
    EXPECT_EQ(daemon.waitForEnd(), 1);
    EXPECT_EQ(daemon.countLines("Write error"), 1);
    EXPECT_EQ(daemon.countLines("main exit"), 1);
}

}  // namespace
