// What a decoder unit survives: unreadable settings, no network, a full machine. After each
// the stream comes back by itself.
#include <gtest/gtest.h>

#include <filesystem>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "sim/raw_srt.h"
#include "sim/sandbox.h"
#include "sim/shimmed_daemon.h"
#include "sim/srt_sender.h"
#include "sim/udp_sink.h"
#include "tests/support/files.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
using namespace sim;
namespace fs = std::filesystem;

const std::string kCfg = "/etc/sysconfig/proxy.cfg";

class BadLuck : public testing::Test {
protected:
    bool streamRuns(std::chrono::seconds limit = 10s) { return unit.received().grow(50, limit); }
    // The stream ends and the daemon opens the next one with what the file then says.
    void endStream() {
        sender.breakOff();
        sender.restart();
    }

    SrtSender sender{5000};
    UdpSink unit;
    const std::string good = configDocument(sender.uri(), sender.uri());
};

TEST_F(BadLuck, UnreadableSettingsStopTheStreamUntilTheyCanBeReadAgain) {
    const struct {
        const char *name;
        void (*spoil)();
    } rows[] = {{"removed", [] { fs::remove(kCfg); }},
                {"a directory", [] { fs::remove(kCfg), fs::create_directory(kCfg); }},
                {"forbidden", [] { fs::permissions(kCfg, fs::perms::none); }}};
    Daemon daemon({.config = good, .before_exec = [] {
                       prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
                       prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
                   }});
    int lines = 0;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(streamRuns());
        row.spoil();
        endStream();
        EXPECT_TRUE(daemon.waitForLine("SRT open failed: srt://", lines += 2));
        fs::remove(kCfg);
        daemon.writeConfig(good);
        EXPECT_TRUE(streamRuns());
    }
}

// A pipe in the file's place lets the test decide when a reader has got half of it.
TEST_F(BadLuck, SettingsReplacedWhileTheyAreReadAreTheOldOrTheNewOnes) {
    SrtSender other(5002);
    Daemon daemon({.config = good});
    ASSERT_TRUE(streamRuns());
    fs::remove(kCfg);
    ASSERT_EQ(mkfifo(kCfg.c_str(), 0600), 0);
    endStream();
    {
        std::ofstream file(kCfg);  // opens when the daemon does
        file << good.substr(0, good.size() / 2) << std::flush;
        writeFile(kCfg + ".new", configDocument(other.uri(), other.uri()));
        fs::rename(kCfg + ".new", kCfg);
        file << good.substr(good.size() / 2);
    }
    ASSERT_TRUE(streamRuns());
    EXPECT_EQ(unit.lastSource(), sender.id());
    endStream();
    EXPECT_TRUE(waitUntil([&] { return unit.lastSource() == other.id(); }));
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

TEST_F(BadLuck, StreamComesBackWithTheNetwork) {
    Daemon daemon({.config = good});
    ASSERT_TRUE(streamRuns());
    setNetwork(false);
    ASSERT_TRUE(daemon.waitForLine("SRT EOS", 2, 20s));
    EXPECT_TRUE(daemon.waitForLine("SRT open failed", 2, 20s));
    setNetwork(true);
    EXPECT_TRUE(streamRuns(20s));
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

TEST(BadLuckListener, FailedOpeningSaysAtWhichStep) {
    if (!kShimWorks) {
        GTEST_SKIP() << "the shim does not go with this sanitizer";
    }
    const std::pair<ShimCall, const char *> rows[] = {{kShimSrtCreateSocket, "srt_socket: "},
                                                      {kShimSrtBind, "srt_bind: "},
                                                      {kShimSrtListen, "srt_listen: "}};
    for (const auto &row : rows) {
        ShimmedDaemon daemon({.primary = "srt://127.0.0.1:5001?mode=listener"},
                             [&](CallShim &shim) { shim.fail_in[row.first] = 1; });
        EXPECT_TRUE(daemon->waitForLine(row.second));
        EXPECT_TRUE(daemon->waitForLine("srt listening"));
    }
}

// A listener's address of the newer kind is refused.
TEST(BadLuckAddress, CallerReachesTheNewerKind) {
    if (readFile("/proc/net/if_inet6").empty()) {
        GTEST_SKIP() << "no IPv6 in this kernel";
    }
    const SrtLibrary library;
    RawSrt listener;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(5000);
    address.sin6_addr = in6addr_loopback;
    srt_bind(listener.id(), reinterpret_cast<sockaddr *>(&address), sizeof address);
    ASSERT_EQ(srt_listen(listener.id(), 1), 0);
    const UdpSink unit;
    Daemon daemon(
        {.primary = "srt://[::1]:5001?mode=listener", .backup = "srt://[::1]:5000?mode=caller"});
    RawSrt sender = listener.accept();
    EXPECT_TRUE(waitUntil([&] { return sender.send("message") && unit.datagrams() > 0; }));
    EXPECT_EQ(daemon.countLines("SRT open failed: srt://[::1]:5001?mode=listener"), 2);
    EXPECT_TRUE(daemon.waitForLine("SRT input opened: srt://[::1]:5000?mode=caller"));
}

// Each new client waits at the door before the one before it leaves.
TEST(BadLuckListener, ThreeHundredClientsLeaveNothingBehind) {
    const SrtLibrary library;
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
    EXPECT_TRUE(daemon.waitForLine("source disconnected. status=", 350));
    EXPECT_EQ(daemon.stop(kStopLimit), 0);
}

}  // namespace
