// A decoder unit: the real executable between real SRT senders and the unit's input.
#include <gtest/gtest.h>

#include <csignal>

#include <sys/socket.h>

#include "sim/daemon.h"
#include "sim/file_descriptor.h"
#include "sim/http_client.h"
#include "sim/loopback.h"
#include "sim/srt_sender.h"
#include "sim/time_namespace.h"
#include "sim/udp_sink.h"
#include "tests/support/files.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
using sim::Daemon;
using sim::SenderOptions;
using sim::SrtSender;
using sim::UdpSink;
using sim::waitUntil;

class Decoder : public testing::Test {
protected:
    UdpSink unit;
};

TEST_F(Decoder, BackupCarriesOnAtOnceWhenThePrimaryEndsAndStaysInUse) {
    SrtSender primary(5000);
    SrtSender backup(5001);
    Daemon daemon({.primary = primary.uri(), .backup = backup.uri()});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));

    primary.breakOff();
    EXPECT_TRUE(unit.receivesFrom(backup.id()));
    primary.restart();
    EXPECT_TRUE(unit.receivesFrom(backup.id()));
    EXPECT_EQ(unit.lastSource(), backup.id()) << "never returns by itself";

    backup.vanish();  // noticed when libsrt has waited long enough for it
    EXPECT_TRUE(unit.receivesFrom(primary.id()));
    EXPECT_EQ(daemon.countLines("SRT EOS, Switching to next stream if avail."), 4);
    EXPECT_EQ(daemon.countLines("SRT open failed"), 0);
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(unit.received().sources[primary.id()].lost, 0U);
}

TEST_F(Decoder, WordsOfAWholeLifeComeInTheirOrder) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(daemon.said(),
              "Startup|WQ family detected|Using packed fs|mode=caller|latency=120|srt "
              "connect|SRT input opened: "
              "srt://127.0.0.1:5000?latency=120&mode=caller|mon_thread_entry: E|"
              "mon_thread_entry: X|main exit|");
    std::istringstream log(readFile("/tmp/proxy.log"));
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        EXPECT_EQ(daemon.countLines(line), 1) << line;
    }
    EXPECT_EQ(lines, 3);
}

TEST_F(Decoder, SettingsAreReadAtEachOpeningAndARunOfFailuresIsLoggedOnce) {
    SrtSender primary(5000);
    SrtSender other(5002);
    Daemon daemon({});
    ASSERT_TRUE(daemon.waitForLine("SRT open failed: srt://"));
    daemon.writeConfig(sim::configDocument("", primary.uri()));
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    EXPECT_EQ(daemon.countLines("SRT open failed"), 2) << "the line and its copy";
    daemon.writeConfig(sim::configDocument("", other.uri()));
    EXPECT_TRUE(unit.receivesFrom(primary.id())) << "a stream that runs stays";
    primary.breakOff();
    EXPECT_TRUE(unit.receivesFrom(other.id()));
    EXPECT_EQ(daemon.countLines("SRT open failed"), 4) << "the disabled slot";
    EXPECT_EQ(daemon.countLines("SRT input opened"), 4);
}

TEST_F(Decoder, ListenerTakesClientAfterClientWithoutEndingTheStream) {
    Daemon daemon({.primary = "srt://127.0.0.1:5000?mode=listener&latency=20"});
    ASSERT_TRUE(daemon.waitForLine("No client, waiting"));
    SrtSender sender({{.port = 5000, .mode = sim::PeerMode::caller, .latency_ms = 20}});
    EXPECT_TRUE(unit.receivesFrom(sender.id()));
    sender.breakOff();
    ASSERT_TRUE(daemon.waitForLine("source disconnected. status="));
    sender.restart();
    EXPECT_TRUE(unit.receivesFrom(sender.id()));
    EXPECT_EQ(daemon.countLines("new connection: 127.0.0.1:"), 2);
    EXPECT_EQ(daemon.countLines("SRT input opened"), 2);
    EXPECT_EQ(daemon.countLines("SRT EOS"), 0);
}

TEST_F(Decoder, SilentPeerHoldsUpNeitherStopNorStream) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    primary.pause();
    ASSERT_TRUE(waitUntil([&] { return unit.received().areSilent(); }));
    primary.resume();
    EXPECT_TRUE(unit.receivesFrom(primary.id()));
    primary.pause();
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(daemon.countLines("SRT EOS"), 0);
}

TEST_F(Decoder, EncryptedMessagesOfAnySizeGoOutAsTheyCame) {
    SrtSender primary(
        SenderOptions{{.port = 5000, .passphrase = "ten-or-more", .pbkeylen = 16}, 2'000'000, 188});
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    EXPECT_EQ(unit.received().messagesOf(188), unit.datagrams());
    EXPECT_EQ(unit.received().foreign_bytes, 0U);
}

TEST_F(Decoder, StreamRateSpacesWhatGoesOut) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri("&streamrate=1000000")});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitUntil([&, from = unit.datagrams()] { return unit.datagrams() >= from + 200; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2s) << "200 datagrams at 1 Mbit/s";
}

// The 32-bit clock of the pacing wraps while the stream runs.
TEST_F(Decoder, WrapOfTheClockDoesNotStopAPacedStream) {
    SrtSender primary(5000);
    constexpr auto kToWrap = 3s;
    const auto wrap = std::chrono::steady_clock::now() + kToWrap;
    sim::enterTimeNamespace(sim::offsetToWrapAfter(kToWrap));
    Daemon daemon({.primary = primary.uri("&streamrate=4000000")});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() > wrap + 100ms; }));
    EXPECT_TRUE(unit.receivesFrom(primary.id()));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

// libsrt holds the port for seconds longer than its listener lives.
TEST(DecoderListener, MovesToAnotherAddressOnItsPortButWaitsForNobodyElses) {
    const sim::FileDescriptor others(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in held = sim::loopback(5003);
    ASSERT_EQ(bind(others.get(), reinterpret_cast<const sockaddr *>(&held), sizeof held), 0);
    const auto listener = [](const std::string &address) {
        return "srt://" + address + "?mode=listener";
    };
    Daemon daemon({.primary = listener("127.0.0.1:5003"), .backup = listener("127.0.0.1:5002")});
    ASSERT_TRUE(daemon.waitForLine("SRT input opened: " + listener("127.0.0.1:5002"), 2));
    EXPECT_EQ(sim::ask("/api/cfg/set", sim::configDocument(listener("0.0.0.0:5002"), "")).status(),
              200);
    EXPECT_TRUE(daemon.waitForLine("SRT input opened: " + listener("0.0.0.0:5002"), 2));
    EXPECT_EQ(daemon.countLines("SRT open failed"), 2) << "the port that somebody else holds";
}

}  // namespace
