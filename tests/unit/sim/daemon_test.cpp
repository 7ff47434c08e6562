#include "sim/daemon.h"

#include <gtest/gtest.h>

#include <csignal>

#include "sim/srt_sender.h"
#include "sim/udp_sink.h"

namespace sim {
namespace {

TEST(Daemon, StreamGoesFromASenderThroughTheDaemonToTheUnit) {
    SrtSender sender(5000);
    UdpSink unit;
    Daemon daemon({.primary = sender.uri()});

    ASSERT_TRUE(waitUntil([&] { return unit.datagrams() > 500; })) << daemon.standardError();

    EXPECT_EQ(unit.lastSource(), sender.id());
    EXPECT_EQ(unit.received().messagesOf(kMessageBytes), unit.datagrams());
    EXPECT_EQ(unit.received().sources[sender.id()].lost, 0U);
    EXPECT_GT(daemon.descriptors(), 3);
    EXPECT_GT(daemon.threads(), 1);
    EXPECT_GT(daemon.residentKb(), 1000);
    EXPECT_GE(daemon.cpuSeconds(), 0);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(daemon.descriptors(), -1);
}

TEST(Daemon, SettingsAndVariablesReachTheProgram) {
    Daemon daemon({.primary = "srt://127.0.0.1:4999?mode=caller",
                   .product = "WQ-7",
                   .config_file = "/tmp/other.cfg"});

    EXPECT_TRUE(daemon.waitForLine("SRT open failed: srt://127.0.0.1:4999?mode=caller"));
    EXPECT_TRUE(daemon.waitForLine("WQ family detected"));
}

TEST(Daemon, LinesAreAwaitedAndAViolentEndIsTold) {
    Daemon daemon({});
    ASSERT_TRUE(daemon.waitForLine("Startup"));
    EXPECT_EQ(daemon.countLines("never said"), 0);

    daemon.signal(SIGKILL);

    EXPECT_EQ(daemon.waitForEnd(), -SIGKILL);
}

}  // namespace
}  // namespace sim
