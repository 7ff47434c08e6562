// A decoder unit: the real executable between real SRT senders and the unit's input.
#include <gtest/gtest.h>

#include <csignal>

#include "sim/daemon.h"
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

std::string listenAt(int port, const std::string &more = "") {
    return "srt://127.0.0.1:" + std::to_string(port) + "?mode=listener&latency=20" + more;
}

SenderOptions callerTo(std::uint16_t port) {
    return {{.port = port, .mode = sim::PeerMode::caller, .latency_ms = 20}};
}

class Decoder : public testing::Test {
protected:
    bool unitReceivesFrom(const SrtSender &sender) {
        const std::uint64_t before = unit.received().sources[sender.id()].packets;
        return waitUntil(
            [&] { return unit.received().sources[sender.id()].packets > before + 70; });
    }

    UdpSink unit;
};

TEST_F(Decoder, BackupCarriesOnAtOnceWhenThePrimaryEndsAndStaysInUse) {
    SrtSender primary(5000);
    SrtSender backup(5001);
    Daemon daemon({.primary = primary.uri(), .backup = backup.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));

    primary.breakOff();
    EXPECT_TRUE(unitReceivesFrom(backup));
    primary.restart();
    EXPECT_TRUE(unitReceivesFrom(backup));
    EXPECT_EQ(unit.lastSource(), backup.id()) << "never returns by itself";

    backup.vanish();  // noticed when libsrt has waited long enough for it
    EXPECT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(daemon.countLines("SRT EOS, Switching to next stream if avail."), 4);
    EXPECT_EQ(daemon.countLines("SRT open failed"), 0);
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(unit.received().sources[primary.id()].lost, 0U);
}

TEST_F(Decoder, WordsOfAWholeLifeComeInTheirOrder) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    std::string said;
    std::string logged;
    std::istringstream lines(daemon.standardOutput());
    for (std::string line; std::getline(lines, line);) {
        const bool event = line.find(" : ") == 15;
        logged += event ? line + "\n" : "";
        said += line.substr(event ? 18 : 0) + "|";
    }
    EXPECT_EQ(said, "Startup|WQ family detected|Using packed fs|mode=caller|latency=120|srt "
                    "connect|SRT input opened: "
                    "srt://127.0.0.1:5000?latency=120&mode=caller|mon_thread_entry: E|"
                    "mon_thread_entry: X|main exit|");
    EXPECT_EQ(readFile("/tmp/proxy.log"), logged);
}

TEST_F(Decoder, DisabledBackupCostsOneSecondAndOneLogLineARun) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));
    primary.breakOff();
    primary.restart();
    EXPECT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(daemon.countLines("SRT open failed: srt://"), 2);  // the line and its copy
    EXPECT_EQ(daemon.countLines("SRT input opened"), 4);
}

TEST_F(Decoder, OnlyTheFirstFailureOfARunIsLogged) {
    Daemon daemon({});
    ASSERT_TRUE(daemon.waitForLine("SRT open failed"));
    SrtSender primary(5000);
    daemon.writeConfig(sim::configDocument("", primary.uri()));
    EXPECT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(daemon.countLines("SRT open failed"), 2);
}

TEST_F(Decoder, SettingsOfTheFileAreTakenUpAtTheNextPassOnly) {
    SrtSender primary(5000);
    SrtSender other(5002);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));
    daemon.writeConfig(sim::configDocument(other.uri(), other.uri()));
    EXPECT_TRUE(unitReceivesFrom(primary));
    primary.breakOff();
    EXPECT_TRUE(unitReceivesFrom(other));
}

TEST_F(Decoder, ListenerTakesClientAfterClientWithoutEndingTheStream) {
    Daemon daemon({.primary = listenAt(5000)});
    ASSERT_TRUE(daemon.waitForLine("No client, waiting"));
    SrtSender sender(callerTo(5000));
    EXPECT_TRUE(unitReceivesFrom(sender));
    sender.breakOff();
    ASSERT_TRUE(daemon.waitForLine("source disconnected. status="));
    sender.restart();
    EXPECT_TRUE(unitReceivesFrom(sender));
    EXPECT_EQ(daemon.countLines("new connection: 127.0.0.1:"), 2);
    EXPECT_EQ(daemon.countLines("SRT input opened"), 2);
    EXPECT_EQ(daemon.countLines("SRT EOS"), 0);
}

TEST_F(Decoder, ListenerWithAStreamIdKeepsStrangersOut) {
    Daemon daemon({.primary = listenAt(5000, "&streamid=studio%25201")});
    ASSERT_TRUE(daemon.waitForLine("SRT input opened"));
    SenderOptions options = callerTo(5000);
    options.stream_id = "studio 2";
    options.source_id = 2;
    SrtSender stranger(options);
    options.stream_id = "studio 1";
    options.source_id = 1;
    SrtSender friendly(options);
    EXPECT_TRUE(unitReceivesFrom(friendly));
    EXPECT_EQ(unit.received().sources[2].packets, 0U);
}

TEST_F(Decoder, EncryptedStreamArrives) {
    SenderOptions options{{.port = 5000, .passphrase = "ten-or-more", .pbkeylen = 16}};
    SrtSender primary(options);
    Daemon daemon({.primary = primary.uri()});
    EXPECT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(unit.received().foreign_bytes, 0U);
}

TEST_F(Decoder, SilentPeerHoldsUpNeitherStopNorStream) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));
    primary.pause();
    ASSERT_TRUE(waitUntil([&, last = unit.datagrams()]() mutable {
        return std::exchange(last, unit.datagrams()) == unit.datagrams();
    }));
    primary.resume();
    EXPECT_TRUE(unitReceivesFrom(primary));
    primary.pause();
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
    EXPECT_EQ(daemon.countLines("SRT EOS"), 0);
}

TEST_F(Decoder, FrozenPrimaryIsLeftForTheBackup) {
    SrtSender primary(5000);
    SrtSender backup(5001);
    Daemon daemon({.primary = primary.uri(), .backup = backup.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));
    primary.freeze();
    EXPECT_TRUE(unitReceivesFrom(backup));
}

TEST_F(Decoder, MessagesOfAnySizeGoOutAsTheyCame) {
    SrtSender primary(SenderOptions{{.port = 5000}, 2'000'000, 188});
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(unit.received().messagesOf(188), unit.datagrams());
}

TEST(DecoderAlone, StreamGoesOnWithNobodyAtTheUnitsInput) {
    SrtSender primary(5000);
    Daemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(waitUntil([&] { return primary.sentMessages() > 300; }));
    UdpSink unit;
    EXPECT_TRUE(waitUntil([&] { return unit.datagrams() > 100; }));
    EXPECT_EQ(daemon.countLines("SRT input opened"), 2);
}

// The 32-bit clock of the pacing wraps while the stream runs, once with the deadline
// level with the clock and once with it far behind.
class DecoderClock : public Decoder, public testing::WithParamInterface<const char *> {};

TEST_P(DecoderClock, WrapDoesNotStopAPacedStream) {
    SrtSender primary(5000);
    constexpr auto kToWrap = 3s;
    const auto wrap = std::chrono::steady_clock::now() + kToWrap;
    sim::enterTimeNamespace(sim::offsetToWrapAfter(kToWrap));
    Daemon daemon({.primary = primary.uri(GetParam())});
    ASSERT_TRUE(unitReceivesFrom(primary));
    ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() > wrap + 100ms; }));
    EXPECT_TRUE(unitReceivesFrom(primary));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

INSTANTIATE_TEST_SUITE_P(Deadline, DecoderClock,
                         testing::Values("&streamrate=4000000", "&streamrate=400000000"));

}  // namespace
