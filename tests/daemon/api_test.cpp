// What the API answers, to the letter, and what it does to the unit and to the process.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>
#include <tuple>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include "sim/file_descriptor.h"
#include "sim/loopback.h"
#include "sim/proxy_image.h"
#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/sandbox.h"
#include "sim/web_server.h"
#include "tests/daemon/api_client.h"
#include "tests/support/files.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// The unit's devices do not open or say nothing, its command tool and the firmware server hang.
TEST(Api, UnitThatGivesNoAnswerHoldsUpNeitherRepliesNorAStop) {
    for (const char *device : {"/dev/rt_cmd", "/dev/rt_stat", "/dev/audiolevels"}) {
        ASSERT_EQ(mkfifo(device, 0600), 0);
    }
    const sim::FileDescriptor silent(open("/dev/rt_stat", O_RDWR | O_CLOEXEC));
    writeFile("/usr/local/bin/cmd", "#!/bin/sh\n: >/tmp/running\nexec sleep 60\n");
    const sim::FileDescriptor server(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = sim::loopback(80);
    ASSERT_EQ(bind(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server.get(), 1), 0);
    sim::FileDescriptor fetching;
    const std::pair<const char *, std::function<void()>> rows[] = {
        {"/api/wq_input_reset", [] { sim::waitUntil([] { return fs::exists("/tmp/running"); }); }},
        {"/api/firmware/get",
         [&] { fetching = sim::FileDescriptor(accept(server.get(), nullptr, nullptr)); }},
    };
    sim::RouteIngress ingress;
    for (const auto &[path, begun] : rows) {
        ApiDaemon daemon({.product = "WX-1"});
        EXPECT_EQ(ask("/api/stats").status(), 200);
        RawClient client(kApiPort);
        client.send(requestText(path, ""));
        begun();
        EXPECT_EQ(daemon.stop(kStopLimit), 0) << path;
    }
}

TEST(Api, RepliesToTheLetter) {
    const ApiDaemon daemon({});
    const std::string no_ping =
        R"({"host":"","ip":"","message":"","success":false,"time":"0.000000","ttl":0})"
        "\n";
    const struct {
        const char *path;
        std::string body, reply;
    } rows[] = {
        {"/api/stats", "",
         R"({"audio_levels":"[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]","current_idx":0})"
         "\n"},
        {"/api/stats/reset", "", "{}\n"},
        {"/api/cfg/get", "",
         R"({"uris":[{"enable":false,"idx":0,"uri":"srt://"},)"
         R"({"enable":false,"idx":1,"uri":"srt://"}]})"
         "\n"},
        {"/api/ping", "", no_ping},
        {"/api/ping", "no JSON", no_ping},
        {"/api/ping", "[\"host\"]", no_ping},
        {"/api/ping", "{\"host\":7}", no_ping},
        {"/api/localfirmware/get", "", "{\"updates\":[]}\n"},
        {"/api/firmware/get", "", "{\"updates\":[]}\n"},
        {"/api/wq_input_reset", "", "{}\n"},
        {"/api/reboot/set", "", "{}\n"},
    };
    RawClient client(kApiPort);  // one for all: what is behind a reply would show in the next
    for (const auto &row : rows) {
        client.send(requestText(row.path, row.body));
        const Reply reply = client.reply();
        EXPECT_EQ(reply.head + reply.body, jsonReply(row.reply)) << row.path << " " << row.body;
    }
    const std::string no_index[] = {R"({"index":2})",
                                    R"({"index":-1})",
                                    R"({"index":1e300})",
                                    R"({"index":"1"})",
                                    R"({"index":null})",
                                    R"({"index":true})",
                                    R"({"index":[1]})",
                                    "{}",
                                    "[1]",
                                    "1",
                                    "no JSON",
                                    "",
                                    std::string(5000, '[')};
    for (const std::string &body : no_index) {
        const Reply reply = ask("/api/source/set", body);
        EXPECT_EQ(reply.head + reply.body, jsonReply("{\"status\":false,\"message\":\"Failed\"}\n"))
            << body;
    }
    EXPECT_EQ(daemon.countLines("API change"), 0) << "a refused request moved the stream";
}

TEST(Api, RouteIsItsExactPathWithAnyMethodAndAnyQueryAndAllElseAFile) {
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
    const std::string text = "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n";
    for (const std::string path :
         {"/static", "/static/", "/static/bootstrap-icons.woff2", "/proxy.log"}) {
        const Reply reply = ask(path, "", "GET");
        EXPECT_EQ(reply.head.substr(0, text.size()), text) << path;
        EXPECT_EQ(reply.body.empty(), path.find('.') == std::string::npos) << path;
    }
    EXPECT_NE(ask("/proxy.log").body.find(" : Startup\n"), std::string::npos);
    fs::remove("/tmp/proxy.log");
    EXPECT_EQ(ask("/proxy.log").status(), 404);
}

TEST(Api, LogIsToldApartByItsTextAndHiddenByNothing) {
    const ApiDaemon daemon({});
    const std::string request = "GET /proxy.log HTTP/1.1\r\nAccept-Encoding: gzip\r\n";
    writeFile("/tmp/proxy.log.gz", "anybody's");
    ASSERT_TRUE(sim::waitUntil([] {  // the daemon's own last line
        return readFile("/tmp/proxy.log").find("SRT open failed") != std::string::npos;
    }));
    const auto askFor = [&](const std::string &text, const std::string &tag) {
        writeFile("/tmp/proxy.log", text);
        const timespec times[2] = {{1700000000, 7}, {1700000000, 7}};
        EXPECT_EQ(utimensat(AT_FDCWD, "/tmp/proxy.log", times, 0), 0);
        RawClient client(kApiPort);
        client.send(request + "If-None-Match: " + tag + "\r\n\r\n");
        return client.reply();
    };
    const Reply first = askFor("one", "none");
    EXPECT_EQ(first.body, "one");
    std::smatch tag;
    ASSERT_TRUE(std::regex_search(first.head, tag, std::regex("\r\nEtag: (\"[0-9]+\\.3\")\r\n")));
    EXPECT_EQ(askFor("two", tag[1]).body, "two");
    EXPECT_EQ(askFor("one", tag[1]).status(), 304);
}

TEST(Api, CapabilitiesTellProductVersionAndRoot) {
    const struct {
        std::optional<std::string> product;
        std::vector<std::string> env;
        std::string told, said;
    } rows[] = {{{}, {}, R"("packed_fs":true,"platform":"tamarind","product":"unknown")", "packed"},
                {"WQ-1",
                 {"PROXY_USE_FS=", "ZOLVA_PLATFORM=dill"},
                 R"("packed_fs":false,"platform":"tamarind","product":"WQ-1")",
                 "unpacked"}};
    fs::current_path("/tmp");
    fs::create_directory("web_root");
    writeFile("web_root/index.html", "from disk");
    writeFile("/tmp/cmdline", "quiet serialnum=A-17\nserialnum=B\n");
    ASSERT_EQ(mount("/tmp/cmdline", "/proc/cmdline", nullptr, MS_BIND, nullptr), 0);
    for (const auto &row : rows) {
        const ApiDaemon daemon({.product = row.product, .env = row.env});
        EXPECT_EQ(ask("/api/caps").body,
                  R"({"addresses":[{"ETH0":"0.0.0.0"},{"GBE":"0.0.0.0"}],)" + row.told +
                      R"(,"serial":"A-17","srt_version":"1.4.4","tidewell_version":"1.0.9",)"
                      R"("tidewell_version_value":65544})"
                      "\n");
        EXPECT_EQ(daemon.countLines("Using " + row.said + " fs"), 1);
        EXPECT_EQ(ask("/", "", "GET").body == "from disk", row.said == "unpacked");
    }
}

TEST(Api, RebootIsAnsweredAndUsesShutdownAndWithoutItReboot) {
    const fs::path shutdown = fs::canonical("/sbin") / "shutdown";
    const ApiDaemon daemon({});
    const auto commands = [](std::size_t count) {
        return sim::waitUntil([&] { return sim::recordedCommands().size() == count; });
    };
    EXPECT_EQ(ask("/api/reboot/set", "", "GET").body, "{}\n");
    ASSERT_TRUE(commands(1));
    EXPECT_EQ(daemon.countLines("Rebooting"), 1);
    writeFile(shutdown, "#!/bin/sh\ntouch /tmp/runs\nuntil [ -e /tmp/go ]; do sleep 0.1; done\n");
    EXPECT_EQ(ask("/api/reboot/set").body, "{}\n") << "before a command that hangs";
    EXPECT_TRUE(sim::waitUntil([] { return fs::exists("/tmp/runs"); }));
    fs::remove(shutdown);
    writeFile("/tmp/go", "");
    ask("/api/reboot/set");
    ASSERT_TRUE(commands(2));
    ask("/api/wq_input_reset");
    EXPECT_EQ(sim::recordedCommands(),
              (std::vector<std::string>{"/sbin/shutdown -r now", "/sbin/reboot ",
                                        "/usr/local/bin/cmd *.dcmd DIT IP RESET"}));
    const sim::FileDescriptor silent(open("/dev/rt_stat", O_RDWR | O_CLOEXEC));
    writeFile("/usr/local/bin/cmd", "#!/bin/sh\nsleep 0.3\ntouch /tmp/reset\n");
    ask("/api/wq_input_reset");
    EXPECT_TRUE(fs::exists("/tmp/reset")) << "answered when the command has ended";
}

// The reply has to be out before the process, which may be quick to end, takes the API down.
TEST(Api, RestartIsAnsweredBeforeTheProcessEnds) {
    for (int life = 0; life < 5; ++life) {
        ApiDaemon daemon({});
        EXPECT_EQ(ask("/api/restart/set").body, "{}\n");
        EXPECT_EQ(daemon.waitForEnd(5s), 0);
        EXPECT_EQ(daemon.countLines("API handler exit"), 1);
        EXPECT_EQ(daemon.countLines("Restarting"), 1);
    }
}

TEST(Api, TakenPortIsToldOnceAndTakenUpWhenItIsFree) {
    std::optional<sim::FileDescriptor> owner(sim::listenAt(kApiPort, 1));
    const std::string refused = "srt://127.0.0.1:0?mode=caller";  // tried every second
    const auto start = std::chrono::steady_clock::now();
    sim::Daemon daemon({.primary = refused, .backup = refused});
    ASSERT_TRUE(daemon.waitForLine("Could not listen on port 8000"));
    ASSERT_TRUE(daemon.waitForLine("SRT open failed")) << "the stream does not wait for the API";
    ASSERT_TRUE(daemon.waitForLine("mode=caller", 12)) << "four seconds, a second try to listen";
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(daemon.countLines("SRT open failed"), 2) << "only the first, and its copy";
    owner.reset();
    ASSERT_TRUE(daemon.waitForLine("Listening on port 8000"));
    EXPECT_EQ(ask("/api/stats/reset").body, "{}\n");
    EXPECT_EQ(daemon.countLines("Could not listen"), 1);
    EXPECT_EQ(daemon.stop(5s), 0);
}

TEST(Api, PingTellsWhyItFailed) {
    const ApiDaemon daemon({});
    const struct {
        std::string host, reply;
    } rows[] = {{"no.such.host.invalid", R"("ip":"","message":"DNS lookup failed")"},
                {"", R"("ip":"","message":"DNS lookup failed")"},
                {"192.0.2.1", R"("ip":"192.0.2.1","message":"Packet Send Failed")"}};
    for (const auto &[host, reply] : rows) {
        const std::string named = std::string(R"({"host":")").append(host).append(R"(")");
        std::string failure = named;
        failure.append(",").append(reply).append(
            ",\"success\":false,\"time\":\"0.000000\",\"ttl\":0}\n");
        EXPECT_EQ(ask("/api/ping", named + "}").body, failure);
    }
    const std::string good = ask("/api/ping", "{\"host\":\"127.0.0.1\"}").body;
    EXPECT_EQ(good.find("{\"host\":\"127.0.0.1\",\"ip\":\"127.0.0.1\",\"message\":\"\","
                        "\"success\":true,\"time\":\"0."),
              0U)
        << good;
    EXPECT_NE(good.find("\",\"ttl\":64}\n"), std::string::npos);
}

TEST(Api, PingWithoutTheRightToARawSocketSaysSo) {
    const ApiDaemon daemon({.before_exec = [] { prctl(PR_CAPBSET_DROP, CAP_NET_RAW); }});
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
        std::string product, path, type;
    } rows[] = {{"WQ-1", "/thumbnail0.jpg", "jpeg"},
                {"WX-2ZZ", "/thumbnail0.jpg", "jpeg"},
                {"WX-2ZZA", "/encThumbnail", "gif"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.product);
        const sim::RouteDriver driver;
        writeFile("/dev/rt_ingress4", "");
        const ApiDaemon daemon({.product = row.product});
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
        std::string cut = whole;
        cut.front() = 'c';
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
    const sim::FileDescriptor server = sim::listenAt(80, 1);
    std::vector<sim::FileDescriptor> crowd;
    for (int i = 0; i < 4; ++i) {
        crowd.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        std::ignore = sim::connectTo(crowd.back().get(), 80);
    }
    const ApiDaemon daemon({});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(ask("/api/thumb").head.find("\r\nContent-Length: 0\r\n"), std::string::npos);
    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted, 500ms);
    EXPECT_LT(lasted, 900ms);
}

TEST(Api, StatsCarryTheLevelsOfTheOlderDriver) {
    sim::ProxyImage device;
    std::vector<std::uint32_t> words(16, sim::ProxyImage::word(3, 21));
    words[15] = sim::ProxyImage::word(3, 0xFFFFF);
    words[7] = sim::ProxyImage::word(15, 7);
    device.setWords(words);
    const ApiDaemon daemon({.before_exec = device.installer()});
    std::string levels;
    for (int channel = 0; channel < 15; ++channel) {
        levels += channel == 3 ? "1048575," : "-1431655766,";
    }
    EXPECT_NE(ask("/api/stats").body.find("[" + levels + "7]"), std::string::npos);
    EXPECT_EQ(device.startRequests(), 1);
    EXPECT_EQ(device.wordRequests(), 16);
}

TEST(Api, RequestsLeaveNoDescriptorBehind) {
    sim::ProxyImage device;
    const ApiDaemon daemon({.before_exec = device.installer()});
    for (int round = 0; round < 20; ++round) {
        for (const char *path : {"/api/stats", "/api/caps", "/api/thumb", "/proxy.log", "/",
                                 "/api/wq_input_reset", "/api/localfirmware/get"}) {
            ask(path);
        }
        ask("/api/ping", "{\"host\":\"127.0.0.1\"}");
    }
    EXPECT_TRUE(sim::waitUntil([&] { return daemon.descriptors() < 25; })) << daemon.descriptors();
}

TEST(Api, LostRouteIsAskedForAgainAndADriverThatTakesAPartEndsNothing) {
    sim::RouteDriver driver;
    driver.followCommands(true);
    writeFile("/dev/rt_ingress4", "");
    ApiDaemon daemon({.product = "WX-1"});
    const auto routeStands = [&](int times) {
        return sim::waitUntil([&] {
            return driver.routeUps() >= times &&
                   readFile("/dev/rt_stat").find("[0003]") != std::string::npos;
        });
    };
    ASSERT_TRUE(routeStands(1));
    ask("/api/stats");  // a pass that saw no route yet is over now
    const int asked = driver.routeUps();
    ask("/api/stats");
    EXPECT_EQ(driver.routeUps(), asked) << "the route stands";
    driver.showRoute(false);
    EXPECT_TRUE(routeStands(asked + 1));
    fs::remove("/dev/rt_cmd");
    fs::create_symlink("/dev/full", "/dev/rt_cmd");
    driver.showRoute(false);
    EXPECT_TRUE(daemon.waitForLine("Write error"));
    EXPECT_EQ(ask("/api/cfg/set", "{}").body, kSuccess);
}

}  // namespace
