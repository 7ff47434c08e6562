// An encoder unit: the real executable between the route driver and real SRT receivers.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include <sched.h>
#include <sys/inotify.h>

#include "sim/daemon.h"
#include "sim/http_client.h"
#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/shimmed_daemon.h"
#include "sim/srt_receiver.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
using sim::Daemon;
using sim::kMessageBytes;
using sim::SrtReceiver;
using sim::waitUntil;

class Encoder : public testing::Test {
protected:
    Encoder() { driver.followCommands(true); }

    static bool arrives(const SrtReceiver &far_end) { return far_end.received().grow(); }
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
    const sim::FileDescriptor watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    const int input = inotify_add_watch(watch.get(), "/dev/rt_ingress4", IN_CLOSE_NOWRITE);
    inotify_add_watch(watch.get(), "/dev/rt_cmd", IN_MODIFY);
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    inotify_event first{};
    EXPECT_GT(read(watch.get(), &first, sizeof first), 0);
    EXPECT_EQ(first.wd, input) << "the route is taken down after its reader has gone";
    EXPECT_EQ(daemon.said(), "Startup|WX family detected|Using packed fs|Setting RR "
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
    EXPECT_EQ(daemon.countLines("SRT EOS, Switching to next stream if avail."), 2);
    EXPECT_TRUE(daemon.waitForLine(" : RTT[", 1, 20s));
    backup.vanish();  // noticed when libsrt has waited long enough for it
    // Both are gone: one line an attempt, alternating.
    ASSERT_TRUE(daemon.waitForLine(": SRT output failed: srt://127.0.0.1:5000", 2, 30s));
    ASSERT_TRUE(daemon.waitForLine(": SRT output failed: srt://127.0.0.1:5001", 2, 30s));
    primary.restart();
    EXPECT_TRUE(waitUntil([&] { return primary.received().messages > 100; }, 20s));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    expectWhole(primary);
}

TEST_F(Encoder, FarEndThatRefusesIsAskedInTurnWithTheBackup) {
    SrtReceiver refusing({.port = 5000, .stream_id = "studio 1"});
    SrtReceiver backup(5001);
    backup.breakOff();
    Daemon daemon({.primary = "srt://127.0.0.1:5000?mode=caller&streamid=studio%25202",
                   .backup = backup.uri(),
                   .product = "WX-1"});
    ASSERT_TRUE(daemon.waitForLine(
        ": SRT output failed: srt://127.0.0.1:5000?mode=caller&streamid=studio 2", 4, 20s))
        << "each time the line and its copy";
    EXPECT_EQ(daemon.countLines("srt_connect: Connection setup failure: connection rejected"), 2);
    backup.restart();
    EXPECT_TRUE(waitUntil([&] { return backup.received().messages > 100; }, 20s));
    EXPECT_EQ(refusing.connectionsMade(), 0U);
}

TEST_F(Encoder, ListenerServesClientAfterClientAndKeepsNothingForThem) {
    const auto start = std::chrono::steady_clock::now();
    Daemon daemon({.primary = "srt://0.0.0.0:5002?mode=listener&latency=120", .product = "WX-1"});
    ASSERT_TRUE(daemon.waitForLine("No client, waiting", 3));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4s) << "two seconds after each";
    SrtReceiver far_end({.port = 5002, .mode = sim::PeerMode::caller});
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
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1", .before_exec = [] {
                       sigset_t all;
                       sigfillset(&all);
                       sigprocmask(SIG_BLOCK, &all, nullptr);
                   }});
    ASSERT_TRUE(arrives(far_end));
    ingress.pause();
    ingress.end();
    ASSERT_TRUE(waitUntil([&] { return !ingress.isOpen(); }));
    ingress.comeBack();
    ingress.resume();
    ASSERT_TRUE(arrives(far_end));
    ingress.pause();
    ASSERT_TRUE(waitUntil([&] { return far_end.received().areSilent(); }));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(daemon.countLines("General error"), 0);
    EXPECT_EQ(daemon.countLines("SRT output opened"), 2);
    expectWhole(far_end);
}

// A far end that hangs for a moment, ten times over, costs time and nothing else.
TEST_F(Encoder, StallsLoseNothingAndSendNothingTwice) {
    if (!sim::kShimWorks) {
        GTEST_SKIP() << "the shim does not go with this sanitizer";
    }
    SrtReceiver far_end({.port = 5000, .latency_ms = 3000});
    sim::ShimmedDaemon daemon({.primary = far_end.uri("&sndbuf=131600"), .product = "WX-1"});
    ASSERT_TRUE(arrives(far_end));
    const auto sends = [&] { return daemon.shim->calls[sim::kShimSrtSend].load(); };
    for (int stall = 0; stall < 10; ++stall) {
        far_end.freeze();
        // A send that stands still is followed by another once it has been given up.
        std::uint64_t begun = 0;
        ASSERT_TRUE(waitUntil([&] {
            begun = sends();
            std::this_thread::sleep_for(400ms);
            return sends() == begun;
        }));
        ASSERT_TRUE(waitUntil([&] { return sends() > begun; }));
        far_end.thaw();
        ASSERT_TRUE(arrives(far_end));
    }
    ingress.pause();
    ASSERT_TRUE(waitUntil([&] { return far_end.received().areSilent(); }));
    EXPECT_GE(sends(), far_end.received().messages + 10) << "no send was given up";
    EXPECT_EQ(far_end.received().sources[ingress.id()].lost, 0U);
    expectWhole(far_end);
    EXPECT_EQ(daemon->countLines("SRT output opened"), 2) << "the line and its copy";
}

// The far end stays connected while libsrt's send buffer is full.
TEST_F(Encoder, FarEndThatReadsNothingHoldsUpNeitherChoiceNorStop) {
    SrtReceiver primary(5000);
    SrtReceiver backup(5001);
    Daemon daemon({.primary = primary.uri("&sndbuf=100000"),
                   .backup = backup.uri("&sndbuf=100000"),
                   .product = "WX-1"});
    ASSERT_TRUE(arrives(primary));
    primary.pause();
    ASSERT_TRUE(ingress.floodUntilFull());
    EXPECT_EQ(sim::ask("/api/source/set", R"({"index":1})").status(), 200);
    EXPECT_TRUE(waitUntil([&] { return backup.received().messages > 100; }, kStopLimit));
    EXPECT_EQ(daemon.countLines("SRT EOS"), 0);
    backup.pause();
    ASSERT_TRUE(ingress.floodUntilFull());
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST(EncoderRoute, DriverThatTakesAPartEndsTheStart) {
    std::filesystem::create_symlink("/dev/full", "/dev/rt_cmd");
    Daemon daemon({.product = "WX-1"});
    EXPECT_EQ(daemon.waitForEnd(), 1);
    EXPECT_EQ(daemon.countLines("Write error"), 1) << "and no route-down";
}

TEST(EncoderRoute, MissingIngressTakesTheRouteDownAgain) {
    sim::RouteDriver driver;
    Daemon daemon({.product = "WX-1"});
    EXPECT_EQ(daemon.waitForEnd(), 1);
    EXPECT_EQ(daemon.countLines("file not found: /dev/rt_ingress4"), 1);
    EXPECT_TRUE(waitUntil([&] { return driver.routeDowns() == 1; }));
    EXPECT_EQ(driver.routeUps(), 1);
}

}  // namespace
