// What the API answers, to the letter, and what it does to the unit and to the process.
#include <gtest/gtest.h>

#include <filesystem>

#include <linux/capability.h>
#include <netinet/in.h>
#include <sys/prctl.h>

#include "sim/file_descriptor.h"
#include "sim/proxy_image.h"
#include "sim/route_driver.h"
#include "sim/sandbox.h"
#include "sim/web_server.h"
#include "tests/daemon/api_client.h"
#include "tests/support/files.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string kSuccess = "{\"status\":true,\"message\":\"Success\"}\n";
const std::string kFailed = "{\"status\":false,\"message\":\"Failed\"}\n";
const std::string kZeroes = "\"[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]\"";

TEST(Api, RepliesToTheLetter) {
    const ApiDaemon daemon({});
    const std::string no_ping = "{\"host\":\"\",\"ip\":\"\",\"message\":\"\",\"success\":false,"
                                "\"time\":\"0.000000\",\"ttl\":0}\n";
    const struct {
        const char *path;
        std::string body;
        std::string reply;
    } rows[] = {
        {"/api/stats", "", "{\"audio_levels\":" + kZeroes + ",\"current_idx\":0}\n"},
        {"/api/stats/reset", "", "{}\n"},
        {"/api/cfg/get", "",
         "{\"uris\":[{\"enable\":false,\"idx\":0,\"uri\":\"srt://\"},"
         "{\"enable\":false,\"idx\":1,\"uri\":\"srt://\"}]}\n"},
        {"/api/source/set", "{\"index\":2}", kFailed},
        {"/api/source/set", "{\"index\":-1}", kFailed},
        {"/api/source/set", "{\"index\":1e300}", kFailed},
        {"/api/source/set", "{\"index\":\"1\"}", kFailed},
        {"/api/source/set", "{\"index\":null}", kFailed},
        {"/api/source/set", "{\"index\":true}", kFailed},
        {"/api/source/set", "{\"index\":[1]}", kFailed},
        {"/api/source/set", "{}", kFailed},
        {"/api/source/set", "[1]", kFailed},
        {"/api/source/set", "1", kFailed},
        {"/api/source/set", "no JSON", kFailed},
        {"/api/source/set", std::string(5000, '['), kFailed},
        {"/api/source/set", "", kFailed},
        {"/api/ping", "", no_ping},
        {"/api/ping", "no JSON", no_ping},
        {"/api/ping", "[\"host\"]", no_ping},
        {"/api/ping", "{\"host\":7}", no_ping},
        {"/api/localfirmware/get", "", "{\"updates\":[]}\n"},
        {"/api/firmware/get", "", "{\"updates\":[]}\n"},
        {"/api/wq_input_reset", "", "{}\n"},
        {"/api/reboot/set", "", "{}\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path + (" " + row.body));
        const Reply reply = ask(row.path, row.body);
        EXPECT_EQ(reply.head + reply.body, jsonReply(row.reply));
    }
    EXPECT_EQ(daemon.countLines("API change"), 0) << "a refused request moved the stream";
}

TEST(Api, RouteIsItsExactPathWithAnyMethodAndAnyQuery) {
    const ApiDaemon daemon({});
    for (const char *method : {"GET", "POST", "PUT", "DELETE", "BREW"}) {
        EXPECT_EQ(ask("/api/stats/reset?a=/b", "x", method).body, "{}\n") << method;
    }
    for (const char *path : {"/api/stats/", "/api/stat%73", "//api/stats", "/API/stats", "/api/x",
                             "/api/", "/api", "/api/stats/reset/", "/web_root/index.html"}) {
        const Reply reply = ask(path, "", "GET");
        EXPECT_EQ(reply.head + reply.body,
                  "HTTP/1.1 404 Not Found\r\nContent-Length: 10         \r\n\r\nNot found\n")
            << path;
    }
}

TEST(Api, OneConnectionCarriesOneReplyForEachRequest) {
    const ApiDaemon daemon({});
    RawClient client(kApiPort);
    client.send(requestText("/api/stats") + requestText("/api/stats/reset") +
                "POST /api/cfg/get HTTP/1.1\r\nConnection: close\r\n\r\n");
    const std::string all = client.untilClosed();
    int replies = 0;
    for (std::size_t at = 0; (at = all.find("HTTP/1.1 200 OK", at)) != std::string::npos; ++at) {
        ++replies;
    }
    EXPECT_EQ(replies, 3);
    EXPECT_EQ(all.substr(all.size() - 4), "}]}\n");
}

TEST(Api, CapabilitiesTellProductVersionAndRoot) {
    const struct {
        std::optional<std::string> product;
        std::vector<std::string> env;
        std::string told;
    } rows[] = {{{}, {}, "\"packed_fs\":true,\"platform\":\"tamarind\",\"product\":\"unknown\""},
                {"WQ-1",
                 {"PROXY_USE_FS=", "ZOLVA_PLATFORM=dill"},
                 "\"packed_fs\":false,\"platform\":\"tamarind\",\"product\":\"WQ-1\""}};
    for (const auto &row : rows) {
        sim::DaemonOptions options;
        options.product = row.product;
        options.env = row.env;
        const ApiDaemon daemon(options);
        EXPECT_EQ(ask("/api/caps").body,
                  "{\"addresses\":[{\"ETH0\":\"0.0.0.0\"},{\"GBE\":\"0.0.0.0\"}]," + row.told +
                      ",\"serial\":\"\",\"srt_version\":\"1.4.4\",\"tidewell_version\":\"1.0.9\","
                      "\"tidewell_version_value\":65544}\n");
        EXPECT_EQ(daemon.countLines(row.env.empty() ? "Using packed fs" : "Using unpacked fs"), 1);
    }
}

TEST(Api, LogIsTheFileOnDisk) {
    const ApiDaemon daemon({});
    const Reply reply = ask("/proxy.log", "", "GET");
    EXPECT_NE(reply.head.find("Content-Type: text/plain; charset=utf-8\r\n"), std::string::npos);
    EXPECT_NE(reply.body.find(" : Startup\n"), std::string::npos);
    fs::remove("/tmp/proxy.log");
    EXPECT_EQ(ask("/proxy.log").status(), 404);
}

TEST(Api, RebootUsesShutdownAndWithoutItReboot) {
    const ApiDaemon daemon({});
    const auto commands = [](std::size_t count) {
        return sim::waitUntil([&] { return sim::recordedCommands().size() == count; });
    };
    EXPECT_EQ(ask("/api/reboot/set", "", "GET").body, "{}\n");
    ASSERT_TRUE(commands(1));
    EXPECT_EQ(daemon.countLines("Rebooting"), 1);
    fs::remove(fs::canonical("/sbin") / "shutdown");
    ask("/api/reboot/set");
    ASSERT_TRUE(commands(2));
    ask("/api/wq_input_reset");
    EXPECT_EQ(sim::recordedCommands(),
              (std::vector<std::string>{"/sbin/shutdown -r now", "/sbin/reboot ",
                                        "/usr/local/bin/cmd *.dcmd DIT IP RESET"}));
}

TEST(Api, RebootIsAnsweredAlsoWhereTheCommandHangs) {
    const fs::path shutdown = fs::canonical("/sbin") / "shutdown";
    writeFile(shutdown, "#!/bin/sh\ntouch /tmp/runs\nuntil [ -e /tmp/go ]; do sleep 0.1; done\n");
    const ApiDaemon daemon({});
    EXPECT_EQ(ask("/api/reboot/set").body, "{}\n");
    EXPECT_TRUE(sim::waitUntil([] { return fs::exists("/tmp/runs"); }));
    writeFile("/tmp/go", "");
}

// The reply has to be out before the process, which may be quick to end, takes the API down.
TEST(Api, RestartIsAnsweredBeforeTheProcessEnds) {
    for (int life = 0; life < 5; ++life) {
        ApiDaemon daemon({});
        EXPECT_EQ(ask("/api/restart/set").body, "{}\n");
        EXPECT_EQ(daemon.waitForEnd(5s), 0);
        EXPECT_EQ(daemon.countLines("API handler exit"), 1);
    }
}

sockaddr_in anyAddress(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    return address;
}

sim::FileDescriptor takePort(std::uint16_t port) {
    sim::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = anyAddress(port);
    bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    listen(listener.get(), 1);
    return listener;
}

TEST(Api, TakenPortIsToldOnceAndTakenUpWhenItIsFree) {
    std::optional<sim::FileDescriptor> owner(takePort(kApiPort));
    const std::string refused = "srt://127.0.0.1:0?mode=caller";  // tried every second
    sim::Daemon daemon({.primary = refused, .backup = refused});
    ASSERT_TRUE(daemon.waitForLine("Could not listen on port 8000"));
    ASSERT_TRUE(daemon.waitForLine("SRT open failed")) << "the stream does not wait for the API";
    ASSERT_TRUE(daemon.waitForLine("mode=caller", 12)) << "five seconds, two more tries to listen";
    owner.reset();
    ASSERT_TRUE(daemon.waitForLine("Listening on port 8000"));
    EXPECT_EQ(ask("/api/stats/reset").body, "{}\n");
    EXPECT_EQ(daemon.countLines("Could not listen"), 1);
    EXPECT_EQ(daemon.countLines("0.0.0.0:8000"), 1) << "the HTTP layer's own line, at each try";
    EXPECT_EQ(daemon.stop(5s), 0);
}

TEST(Api, PingTellsWhyItFailed) {
    const ApiDaemon daemon({});
    const struct {
        const char *host;
        const char *reply;
    } rows[] = {{"no.such.host.invalid", "\"ip\":\"\",\"message\":\"DNS lookup failed\""},
                {"", "\"ip\":\"\",\"message\":\"DNS lookup failed\""},
                {"192.0.2.1", "\"ip\":\"192.0.2.1\",\"message\":\"Packet Send Failed\""}};
    for (const auto &row : rows) {
        EXPECT_EQ(ask("/api/ping", "{\"host\":\"" + std::string(row.host) + "\"}").body,
                  "{\"host\":\"" + std::string(row.host) + "\"," + row.reply +
                      ",\"success\":false,\"time\":\"0.000000\",\"ttl\":0}\n");
    }
    const std::string good = ask("/api/ping", "{\"host\":\"127.0.0.1\"}").body;
    EXPECT_EQ(good.find("{\"host\":\"127.0.0.1\",\"ip\":\"127.0.0.1\",\"message\":\"\","
                        "\"success\":true,\"time\":\"0."),
              0U)
        << good;
    EXPECT_NE(good.find("\",\"ttl\":64}\n"), std::string::npos);
}

TEST(Api, PingWithoutTheRightToARawSocketSaysSo) {
    sim::DaemonOptions options;
    options.before_exec = [] { prctl(PR_CAPBSET_DROP, CAP_NET_RAW); };
    const ApiDaemon daemon(options);
    EXPECT_EQ(ask("/api/ping", "{\"host\":\"127.0.0.1\"}").body,
              "{\"host\":\"127.0.0.1\",\"ip\":\"\",\"message\":\"Could not create socket\","
              "\"success\":false,\"time\":\"0.000000\",\"ttl\":0}\n");
}

// A host that is on the network and does not answer: at the far end of a virtual cable that
// nobody has plugged in.
TEST(Api, PingGivesUpAfterOneSecond) {
    if (system("ip link add eth1 type veth peer name hole && ip addr add 10.9.9.1/24 dev eth1 && "
               "ip link set eth1 up && ip link set hole up && "
               "ip neigh add 10.9.9.9 lladdr 02:00:00:00:00:09 dev eth1") != 0) {
        GTEST_SKIP() << "no virtual cable in this kernel";
    }
    const ApiDaemon daemon({});
    EXPECT_NE(ask("/api/caps").body.find("{\"GBE\":\"10.9.9.1\"}"), std::string::npos);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(ask("/api/ping", "{\"host\":\"10.9.9.9\"}").body.find("\"Packet Type failed\""),
              std::string::npos);
    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted, 900ms);
    EXPECT_LT(lasted, 2s);
}

// The fetch asks the unit's own server, and what cannot be had leaves the image as it was.
TEST(Thumbnail, IsTheLastImageThatCouldBeFetched) {
    const struct {
        std::string product;
        std::string path;
        std::string type;
    } rows[] = {{"WQ-1", "/thumbnail0.jpg", "jpeg"},
                {"WX-2ZZ", "/thumbnail0.jpg", "jpeg"},
                {"WX-2ZZA", "/encThumbnail", "gif"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.product);
        const sim::RouteDriver driver;
        if (row.type == "gif" || row.product == "WX-2ZZ") {
            writeFile("/dev/rt_ingress4", "");
        }
        sim::DaemonOptions options;
        options.product = row.product;
        const ApiDaemon daemon(options);
        const auto imageIs = [&](const std::string &image) {
            RawClient client(kApiPort);
            client.send(requestText("/api/thumb"));
            const std::string all = client.untilClosed();
            EXPECT_EQ(all, "HTTP/1.0 200 OK\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n"
                           "Expires: Thu, 01 Dec 1994 16:00:00 GMT\r\nContent-Type: image/" +
                               row.type + "\r\nContent-Length: " + std::to_string(image.size()) +
                               "\r\n\r\n" + image + "\r\n");
        };
        imageIs("");
        sim::WebServer server;
        const std::string whole(8192, 'w');
        server.setReply(row.path, whole);
        imageIs(whole);
        server.setReply(row.path, "c" + whole);
        const std::string cut = "c" + whole.substr(1);
        imageIs(cut);
        server.setManner(sim::WebManner::break_off);
        imageIs(cut);
        const auto start = std::chrono::steady_clock::now();
        server.setManner(sim::WebManner::hang);
        imageIs(cut);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
        server.setManner(sim::WebManner::answer);
        server.setReply(row.path, "no", 404);
        imageIs("no");
        EXPECT_EQ(server.requests(), std::vector<std::string>(5, row.path));
        EXPECT_EQ(server.lastHead(), "GET " + row.path +
                                         " HTTP/1.0\r\nHost: 127.0.0.1\r\nContent-Type: "
                                         "octet-stream\r\nContent-Length: 0\r\n\r\n");
        EXPECT_EQ(ask("/api/encthumb?now").body, "no");
    }
}

// A full backlog: the system leaves the next client's first packet unanswered.
TEST(Thumbnail, IsNotWaitedForLongWhereItsServerAcceptsNobody) {
    const sim::FileDescriptor server = takePort(80);
    std::vector<sim::FileDescriptor> crowd;
    for (int i = 0; i < 4; ++i) {
        crowd.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_in address = anyAddress(80);
        connect(crowd.back().get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    const ApiDaemon daemon({});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(ask("/api/thumb").head.find("\r\nContent-Length: 0\r\n"), std::string::npos);
    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted, 500ms);
    EXPECT_LT(lasted, 900ms);
}

TEST(Api, PackedDirectoriesAreEmptyFilesAndTheFontIsText) {
    const ApiDaemon daemon({});
    for (const char *path : {"/static", "/static/", "/static/bootstrap-icons.woff2"}) {
        const Reply reply = ask(path, "", "GET");
        EXPECT_EQ(reply.head.find("HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n"),
                  0U)
            << path << " " << reply.head;
        EXPECT_EQ(reply.body.empty(), std::string(path).find("woff2") == std::string::npos);
    }
}

TEST(Api, StatsCarryTheLevelsOfTheOlderDriver) {
    sim::ProxyImage device;
    std::vector<std::uint32_t> words(16, sim::ProxyImage::word(3, 21));
    words[15] = sim::ProxyImage::word(3, 0xFFFFF);
    words[7] = sim::ProxyImage::word(15, 7);
    device.setWords(words);
    sim::DaemonOptions options;
    options.before_exec = device.installer();
    const ApiDaemon daemon(options);
    std::string levels = "[";
    for (int channel = 0; channel < 15; ++channel) {
        levels += channel == 3 ? "1048575," : "-1431655766,";
    }
    EXPECT_EQ(ask("/api/stats").body,
              "{\"audio_levels\":\"" + levels + "7]\",\"current_idx\":0}\n");
    EXPECT_EQ(device.startRequests(), 1);
    EXPECT_EQ(device.wordRequests(), 16);
}

class ApiOfEncoder : public testing::Test {
protected:
    ApiOfEncoder() {
        writeFile("/dev/rt_ingress4", "");
        options.product = "WX-1";
    }
    sim::RouteDriver driver;
    sim::DaemonOptions options;
};

TEST_F(ApiOfEncoder, LostRouteIsAskedForAgain) {
    driver.followCommands(true);
    const ApiDaemon daemon(options);
    ASSERT_TRUE(sim::waitUntil([&] { return driver.routeUps() == 1; }));
    ask("/api/stats");
    EXPECT_EQ(driver.routeUps(), 1) << "the route stands";
    driver.showRoute(false);
    EXPECT_TRUE(sim::waitUntil([&] { return driver.routeUps() == 2; }, 5s));
}

TEST_F(ApiOfEncoder, DriverThatTakesAPartDoesNotEndTheApi) {
    driver.showRoute(true);
    ApiDaemon daemon(options);
    fs::remove("/dev/rt_cmd");
    fs::create_symlink("/dev/full", "/dev/rt_cmd");
    driver.showRoute(false);
    EXPECT_TRUE(daemon.waitForLine("Write error"));
    EXPECT_EQ(ask("/api/cfg/set", "{}").body, kSuccess);
    EXPECT_TRUE(daemon.isRunning());
}

}  // namespace
