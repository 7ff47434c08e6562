// What the API does to a stream that runs, and what clients cannot do to it.
#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <thread>

#include <sys/resource.h>

#include "sim/srt_sender.h"
#include "sim/udp_sink.h"
#include "tests/daemon/api_client.h"
#include "tests/support/files.h"

namespace {

using namespace std::chrono_literals;
using sim::SrtSender;
using sim::waitUntil;

class ApiBesideStream : public testing::Test {
protected:
    static bool statsShow(const std::string &text) {
        return waitUntil([&] { return ask("/api/stats").body.find(text) != std::string::npos; });
    }

    sim::UdpSink unit;
    SrtSender primary{5000};
    SrtSender backup{5001};
};

TEST_F(ApiBesideStream, StatsShowTheStreamAndZeroesBetweenStreams) {
    const ApiDaemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(statsShow("\"endpoint\":\"127.0.0.1:5000\"")) << ask("/api/stats").body;
    EXPECT_TRUE(statsShow("\"current_idx\":0,"));
    EXPECT_EQ(ask("/api/cfg/set", "{\"uris\":[{\"idx\":0,\"uri\":\"srt://127.0.0.1:5099\"}]}").body,
              kSuccess);
    EXPECT_TRUE(statsShow("\"packets\":0,"));
    const std::string between = ask("/api/stats").body;
    EXPECT_NE(between.find("\"endpoint\":\"\""), std::string::npos);
    EXPECT_NE(between.find("\"recv\":{"), std::string::npos);
    EXPECT_TRUE(statsShow("\"current_idx\":1,"));
    EXPECT_TRUE(statsShow("\"current_idx\":0,")) << "2 by now";
}

TEST_F(ApiBesideStream, SourceIsSelectedByHandAndReopenedEvenWhereNothingChanges) {
    ApiDaemon daemon({.primary = primary.uri(), .backup = backup.uri()});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    const std::string file = readFile("/etc/sysconfig/proxy.cfg");
    EXPECT_EQ(ask("/api/source/set", "{\"index\":1}").body, kSuccess);
    EXPECT_TRUE(unit.receivesFrom(backup.id()));
    EXPECT_TRUE(statsShow("\"current_idx\":1,"));
    EXPECT_EQ(ask("/api/source/set", "{\"index\":1.0}").body, kSuccess);
    EXPECT_TRUE(waitUntil([&] { return backup.connectionsMade() == 2; }));
    EXPECT_EQ(ask("/api/source/set", "{\"index\":0}").body, kSuccess);
    EXPECT_TRUE(unit.receivesFrom(primary.id()));
    EXPECT_EQ(readFile("/etc/sysconfig/proxy.cfg"), file);
    EXPECT_TRUE(daemon.waitForLine("API change detected, closing/restarting", 6));
}

TEST_F(ApiBesideStream, SettingsGoBackToThePrimaryWhateverTheySay) {
    ApiDaemon daemon({.primary = primary.uri(), .backup = backup.uri()});
    const std::string file = readFile("/etc/sysconfig/proxy.cfg");
    int times_on_primary = 1;
    for (const std::string &body : {std::string("no JSON"), std::string(1 << 20, '{')}) {
        ASSERT_TRUE(unit.receivesFrom(primary.id()));
        ask("/api/source/set", "{\"index\":1}");
        ASSERT_TRUE(unit.receivesFrom(backup.id()));
        EXPECT_EQ(ask("/api/cfg/set", body).body, kSuccess);
        ++times_on_primary;
        EXPECT_TRUE(waitUntil([&] { return unit.lastSource() == primary.id(); }));
        EXPECT_EQ(readFile("/etc/sysconfig/proxy.cfg"), file);
    }
    EXPECT_GE(primary.connectionsMade(), static_cast<std::uint32_t>(times_on_primary));
}

TEST_F(ApiBesideStream, SettingsAreSavedAsTheyCameUpToTheFirstNul) {
    const ApiDaemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    const std::string document =
        "{ \"mine\": 1, \"uris\" : [{\"idx\":0,\"uri\":\"" + backup.uri() + "\"}]}";
    EXPECT_EQ(ask("/api/cfg/set", document + std::string("\0 junk", 6)).body, kSuccess);
    EXPECT_TRUE(unit.receivesFrom(backup.id()));
    EXPECT_EQ(readFile("/etc/sysconfig/proxy.cfg"), document);
    EXPECT_EQ(daemon.countLines("setCfg: " + document), 1);
    EXPECT_NE(ask("/api/cfg/get").body.find("\"uri\":\"srt://127.0.0.1:5001?"), std::string::npos);
}

// More clients than the process may have descriptors, some that never finish a request, some
// that go away in the middle of a reply: the stream must not lose a packet, and whoever comes
// next is answered.
TEST_F(ApiBesideStream, CrowdOfClientsHurtsNeitherTheStreamNorTheNextClient) {
    static const rlimit many{4096, 4096}, few{1024, 1024};
    setrlimit(RLIMIT_NOFILE, &many);
    ApiDaemon daemon(
        {.primary = primary.uri(), .before_exec = [] { setrlimit(RLIMIT_NOFILE, &few); }});
    ASSERT_TRUE(unit.receivesFrom(primary.id()));
    std::vector<RawClient> crowd;
    for (int number = 0; number < 1100; ++number) {
        crowd.emplace_back(kApiPort);
        if (number % 3 == 1) {
            crowd.back().send("POST /api/cfg/set HTTP/1.1\r\nContent-Length: 1000\r\n\r\n{");
        } else if (number % 3 == 2) {
            crowd.back().send("GET /static/bootstrap.min.css HTTP/1.1\r\n\r\n");
        }
        if (number % 50 == 0) {
            crowd.back().reset();
            ASSERT_EQ(ask("/api/stats/reset").body, "{}\n") << number;
        }
    }
    EXPECT_EQ(unit.received().sources[primary.id()].lost, 0U);
    EXPECT_EQ(ask("/api/cfg/set", readFile("/etc/sysconfig/proxy.cfg")).body, kSuccess)
        << "the settings file and a new socket are still within reach";
    EXPECT_TRUE(daemon.waitForLine("SRT input opened", 4));
    EXPECT_TRUE(unit.receivesFrom(primary.id()));
    crowd.clear();
    EXPECT_TRUE(waitUntil([&] { return daemon.descriptors() < 40; })) << daemon.descriptors();
    EXPECT_EQ(daemon.stop(5s), 0);
}

// Killed at any moment of a save, the next life reads one of the two documents.
TEST(ApiSaving, KillInTheMiddleLeavesTheOldOrTheNewDocument) {
    const std::string brief = sim::configDocument("srt://brief.invalid:1", "");
    const std::string lengthy =
        sim::configDocument("srt://lengthy.invalid:1", "srt://second:2") + std::string(3000, ' ');
    std::minstd_rand dice(11);
    for (int life = 0; life < 12; ++life) {
        ApiDaemon daemon({.config = brief});
        std::thread killer([&, delay = std::chrono::microseconds(dice() % 30000)] {
            std::this_thread::sleep_for(delay);
            daemon.signal(SIGKILL);
        });
        try {
            for (;;) {
                ask("/api/cfg/set", lengthy);
                ask("/api/cfg/set", brief);
            }
        } catch (const std::runtime_error &) {
            killer.join();
        }
        daemon.waitForEnd();
        const std::string saved = readFile("/etc/sysconfig/proxy.cfg");
        EXPECT_TRUE(saved.starts_with(brief) || saved.starts_with(lengthy)) << saved;
    }
}

// A change that comes while nothing is open costs one opening more, and one line.
TEST(ApiChange, WhileOpeningIsCarriedOutByTheNextStream) {
    ApiDaemon daemon({});
    ASSERT_TRUE(daemon.waitForLine("SRT open failed"));
    ask("/api/source/set", R"({"index":0})");
    const std::string listener = "srt://127.0.0.1:5001?mode=listener";
    daemon.writeConfig(sim::configDocument(listener, listener));
    ASSERT_TRUE(daemon.waitForLine(": SRT input opened: ", 2));
    ASSERT_TRUE(daemon.waitForLine("No client, waiting", 2));
    EXPECT_EQ(daemon.countLines(": API change detected, closing/restarting"), 2);
    EXPECT_EQ(daemon.countLines("mon_thread_entry: E"), 2);
}

// Both slots fail at once and rest a second, in which somebody chooses.
TEST(ApiChange, ChoiceMadeWhileOpeningIsTheNextAttempt) {
    ApiDaemon daemon({.primary = "srt://127.0.0.1:5001", .backup = "srt://127.0.0.1:5002"});
    int attempts = 1;
    for (const char *slot : {"0", "0", "1", "1", "0"}) {
        ASSERT_TRUE(daemon.waitForLine("srt mode not set", attempts++));
        EXPECT_EQ(ask("/api/source/set", R"({"index":)" + std::string(slot) + "}").body, kSuccess);
        ASSERT_TRUE(daemon.waitForLine("srt mode not set", attempts));
        const std::string stats = ask("/api/stats").body;
        EXPECT_NE(stats.find(std::string("\"current_idx\":") + slot), std::string::npos) << stats;
    }
}

TEST(ApiChange, SettingsThatComeDuringAConnectAreTriedNextAndTheLogNamesWhatWasTried) {
    const sim::UdpSink unit;
    const SrtSender sender(5000);
    ApiDaemon daemon({.primary = "srt://127.0.0.1:5099?mode=caller"});
    ASSERT_TRUE(daemon.waitForLine("srt connect"));
    ask("/api/cfg/set", sim::configDocument(sender.uri(), ""));
    EXPECT_TRUE(unit.receivesFrom(sender.id()));
    EXPECT_EQ(daemon.countLines(": SRT open failed: srt://127.0.0.1:5099?mode=caller"), 2);
    EXPECT_EQ(daemon.countLines("SRT open failed: "), 2) << "the line and its copy";
}

}  // namespace
