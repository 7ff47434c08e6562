// What a decoder unit survives: broken settings, noise, a full machine. After each the
// stream goes on or comes back by itself, and nothing has been lost on the way.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include <arpa/inet.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include "sim/shimmed_daemon.h"
#include "sim/srt_sender.h"
#include "sim/udp_sink.h"
#include "tests/support/files.h"
#include "tests/support/raw_srt.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
using namespace sim;
namespace fs = std::filesystem;

const std::string kCfg = "/etc/sysconfig/proxy.cfg";

class BadLuck : public testing::Test {
protected:
    bool streamRuns(std::uint64_t datagrams = 50) {
        const std::uint64_t before = unit.datagrams();
        return waitUntil([&] { return unit.datagrams() > before + datagrams; });
    }
    // The stream ends and the daemon opens the next one with what the file then says.
    void endStream() {
        sender.breakOff();
        sender.restart();
    }

    SrtSender sender{5000};
    UdpSink unit;
};

TEST_F(BadLuck, BrokenSettingsFilesKeepTheRunningAddresses) {
    const std::string good = sim::configDocument(sender.uri(), sender.uri());
    const struct {
        const char *name;
        std::string text;
    } rows[] = {{"empty", ""},
                {"cut off", good.substr(0, good.size() / 2)},
                {"deeply nested", std::string(1 << 20, '[')},
                {"wrong types", R"({"uris":[{"idx":[],"uri":{}},{"idx":0,"uri":1e9}],"foo":3})"},
                {"6 MB of noise", std::string(6 << 20, '\x01')},
                {"bad address", R"({"uris":[{"idx":0,"uri":"srt://[::1:5000"}]})"}};
    Daemon daemon({.config = good});
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(streamRuns());
        daemon.writeConfig(row.text);
        endStream();
        EXPECT_TRUE(streamRuns());
    }
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST_F(BadLuck, MissingFileOrDirectoryStopsTheStreamUntilItIsBack) {
    Daemon daemon({.primary = sender.uri()});
    ASSERT_TRUE(streamRuns());
    fs::remove(kCfg);
    endStream();
    ASSERT_TRUE(daemon.waitForLine("SRT open failed: srt://"));
    fs::create_directory(kCfg);
    ASSERT_TRUE(waitUntil([&, before = sender.connectionsMade()] {
        return sender.connectionsMade() == before && unit.lastSource() == sender.id();
    }));
    fs::remove(kCfg);
    daemon.writeConfig(sim::configDocument(sender.uri(), ""));
    EXPECT_TRUE(streamRuns());
}

TEST_F(BadLuck, AbsurdAddressesAreRefusedOneAfterTheOther) {
    const char *const absurd[] = {
        "srt://",
        "srt://127.0.0.1:0?mode=caller",
        "srt://127.0.0.1:99999999999?mode=caller",
        "srt://127.0.0.1:5000",
        "srt://127.0.0.1:5000?mode=caller&mode=listener&pbkeylen=99",
        "srt://127.0.0.1:5000?mode=caller&passphrase=short",
        "srt://127.0.0.1:5000?mode=caller&passphrase=%25",
        "srt://no.such.host.invalid:5000?mode=caller",
        "srt://not-an-address:5000?mode=listener",
        "srt://192.0.2.1:5000?mode=listener",
        "srt://[::1]:5000?mode=listener",
    };
    std::vector<std::unique_ptr<Daemon>> daemons;
    for (std::size_t i = 0; i < std::size(absurd); ++i) {
        const std::string backup = "srt://127.0.0.1:" + std::to_string(5100 + i) + "?mode=listener";
        daemons.push_back(std::make_unique<Daemon>(
            sim::DaemonOptions{.primary = absurd[i],
                               .backup = backup,
                               .config_file = "/tmp/" + std::to_string(i) + ".cfg"}));
    }
    for (std::size_t i = 0; i < std::size(absurd); ++i) {
        SCOPED_TRACE(absurd[i]);
        EXPECT_TRUE(daemons[i]->waitForLine("SRT open failed"));
        EXPECT_TRUE(daemons[i]->waitForLine("SRT input opened: srt://127.0.0.1:51"));
    }
}

TEST_F(BadLuck, StreamIdOfAnyLengthIsHeldAndItsLogLineCut) {
    Daemon daemon(
        {.primary = "srt://127.0.0.1:5001?mode=listener&streamid=" + std::string(5000, 'i')});
    EXPECT_TRUE(daemon.waitForLine("srt listening"));
    EXPECT_TRUE(
        waitUntil([] { return readFile("/tmp/proxy.log").find("iii") != std::string::npos; }));
    EXPECT_LT(readFile("/tmp/proxy.log").size(), 1200U);
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST_F(BadLuck, NoiseAndHalfHandshakesAtTheListenerChangeNothing) {
    Daemon daemon({.primary = "srt://127.0.0.1:5001?mode=listener&latency=20"});
    ASSERT_TRUE(daemon.waitForLine("SRT input opened"));
    const int noise = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(5001);
    target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::minstd_rand dice(7);
    for (int i = 0; i < 3000; ++i) {
        std::string datagram(dice() % 1500, '\0');
        for (char &byte : datagram) {
            byte = static_cast<char>(dice());
        }
        if (i % 2 == 0 && datagram.size() > 4) {
            datagram.replace(0, 4, std::string("\x80\0\0\0", 4));  // as if a handshake began
        }
        sendto(noise, datagram.data(), datagram.size(), 0,
               reinterpret_cast<const sockaddr *>(&target), sizeof target);
    }
    close(noise);
    SrtSender caller({{.port = 5001, .mode = sim::PeerMode::caller, .latency_ms = 20}});
    EXPECT_TRUE(streamRuns());
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST_F(BadLuck, PortInUseIsTriedAgainUntilItIsFree) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5001);
    const int occupier = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(occupier, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const std::string listener = "srt://0.0.0.0:5001?mode=listener&latency=20";
    Daemon daemon({.primary = listener, .backup = listener});
    ASSERT_TRUE(daemon.waitForLine("srt_bind: "));
    close(occupier);
    SrtSender caller({{.port = 5001, .mode = sim::PeerMode::caller, .latency_ms = 20}});
    EXPECT_TRUE(streamRuns());
}

TEST_F(BadLuck, FullOrReadOnlyTmpCostsTheLogFileOnly) {
    fs::create_directory("/tmp/room");
    ASSERT_EQ(mount("none", "/tmp", "tmpfs", 0, "size=4k"), 0);
    writeFile("/tmp/filler", std::string(4096, 'x'));
    {
        Daemon daemon({.primary = sender.uri()});
        EXPECT_TRUE(streamRuns());
        EXPECT_EQ(daemon.stop(kStopLimit), 0);
    }
    EXPECT_FALSE(fs::exists("/tmp/proxy.log.new"));
    ASSERT_EQ(mount("none", "/tmp", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    Daemon daemon({.primary = sender.uri()});
    EXPECT_TRUE(streamRuns());
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST_F(BadLuck, NoDescriptorsLeftIsOverWhenThereAreSomeAgain) {
    Daemon daemon({.primary = sender.uri()});
    ASSERT_TRUE(streamRuns());
    rlimit few{3, 1024};
    ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    endStream();
    ASSERT_TRUE(daemon.waitForLine("SRT open failed")) << "neither settings nor sockets open";
    few.rlim_cur = 1024;
    ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    EXPECT_TRUE(streamRuns());
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

TEST_F(BadLuck, ReceiveErrorReopensTheSameAddressAtOnce) {
    if (!kShimWorks) {
        GTEST_SKIP() << "the shim does not go with this sanitizer";
    }
    ShimmedDaemon daemon({.primary = "srt://127.0.0.1:5001?mode=listener&latency=20",
                          .backup = "srt://127.0.0.1:5002?mode=listener&latency=20"});
    SrtSender caller({{.port = 5001, .mode = sim::PeerMode::caller, .latency_ms = 20}});
    ASSERT_TRUE(streamRuns());
    daemon.shim->fail_in[kShimSrtRecvmsg] = 1;
    ASSERT_TRUE(daemon->waitForLine("Read returned error: -1"));
    EXPECT_TRUE(streamRuns());
    EXPECT_EQ(daemon->countLines("5002"), 0);
}

// Each new client waits at the door before the one before it leaves.
TEST(BadLuckListener, ThreeHundredClientsLeaveNothingBehind) {
    const SrtLibraryForTest library;
    Daemon daemon({.primary = "srt://127.0.0.1:5001?mode=listener&latency=20"});
    ASSERT_TRUE(daemon.waitForLine("srt listening"));
    auto client = std::make_unique<RawSrt>();
    ASSERT_TRUE(client->connect(5001));
    int descriptors = 0;
    int threads = 0;
    long resident_kb = 0;
    for (int visit = 1; visit <= 350; ++visit) {
        ASSERT_TRUE(daemon.waitForLine("new connection: ", visit));
        auto following = std::make_unique<RawSrt>();
        ASSERT_TRUE(following->connect(5001)) << visit;
        client = std::move(following);
        if (visit == 50) {
            descriptors = daemon.descriptors();
            threads = daemon.threads();
            resident_kb = daemon.residentKb();
        }
    }
    EXPECT_LE(daemon.descriptors(), descriptors);
    EXPECT_TRUE(waitUntil([&] { return daemon.threads() <= threads; }));
    EXPECT_TRUE(!kShimWorks || waitUntil([&] { return daemon.residentKb() <= resident_kb + 1024; }))
        << daemon.residentKb() << " kB, after 50 clients " << resident_kb;
    EXPECT_EQ(daemon.countLines("source disconnected. status="), 350);
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

}  // namespace
