// Updates through the API: what is listed, what is refused, and what a script that has been
// started finds and leaves.
#include <gtest/gtest.h>

#include <filesystem>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/srt_sender.h"
#include "sim/udp_sink.h"
#include "sim/web_server.h"
#include "tests/daemon/api_client.h"
#include "tests/support/files.h"

namespace {

using namespace std::chrono_literals;
using sim::waitUntil;
namespace fs = std::filesystem;

const std::string kMedia = "/media/hd0/media/";
const std::string kRootCrontab = "/var/spool/cron/crontabs/root";

// Tells what a script finds in its process.
const std::string kScript =
    "for fd in /proc/$$/fd/*; do readlink $fd; done >/tmp/fds\n"
    "grep -E 'SigIgn|SigBlk' /proc/$$/status | grep -o '[0-9a-f]*$' | tr '\\n' ' ' >/tmp/signals\n"
    "cat /etc/cron.d/crontab >/tmp/crontab_then; mv /tmp/fds /tmp/started\n";

class Firmware : public testing::Test {
protected:
    Firmware() {
        writeFile("/etc/cron.d/crontab", "1 /etc/init.d/tidewell\n2 other\n");
        writeFile(kMedia + "tidewell-fennel-1.0.2", kScript);
        writeFile(kMedia + "tidewell-fennel-1.0.10", kScript);
        writeFile(kMedia + "tidewell-dill-9", kScript);
        writeFile(kMedia + "holiday.ts", "");
        fs::create_directory(kMedia + "folder");
    }
    static std::size_t files() {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(kMedia), fs::directory_iterator{}));
    }
    static bool isSilent() {
        RawClient client(kApiPort);
        client.send("GET /api/stats HTTP/1.1\r\n\r\n");
        client.finish();
        return client.closedByServer();
    }
    static void expectCleanScript() {
        ASSERT_TRUE(waitUntil([] { return fs::exists("/tmp/started"); }));
        const std::string open_files = readFile("/tmp/started");
        EXPECT_NE(open_files.find("daemon-1.out"), std::string::npos) << open_files;
        EXPECT_EQ(open_files.find("socket"), std::string::npos) << open_files;
        EXPECT_EQ(open_files.find("anon_inode"), std::string::npos) << open_files;
    }
};

TEST_F(Firmware, IsListedForThePlatformFromTheHighestVersionDown) {
    const ApiDaemon daemon({});
    EXPECT_EQ(ask("/api/localfirmware/get").body,
              "{\"updates\":[\"tidewell-fennel-1.0.10\",\"tidewell-fennel-1.0.2\"]}\n");
    sim::WebServer server;
    for (const char *name :
         {"tidewell-fennel-1.0.2", "tidewell-fennel-1.0.10", "tidewell-dill-9"}) {
        server.addUpload(name, "");
    }
    EXPECT_EQ(ask("/api/firmware/get").body,
              "{\"updates\":[\"tidewell-fennel-1.0.10\",\"tidewell-fennel-1.0.2\"]}\n");
    server.setReply("/uploads/", std::string(3 << 20, 'x'));
    EXPECT_EQ(ask("/api/firmware/get").body, "{\"updates\":[]}\n");
    EXPECT_EQ(daemon.countLines("Could not fetch firmware listing"), 1);
}

TEST_F(Firmware, OfAnotherPlatformIsListedWhereTheEnvironmentNamesThat) {
    const ApiDaemon daemon({.env = {"ZOLVA_PLATFORM=dill"}});
    sim::WebServer server;
    server.addUpload("tidewell-fennel-3", "");
    server.addUpload("tidewell-dill-9", "");
    for (const char *path : {"/api/localfirmware/get", "/api/firmware/get"}) {
        EXPECT_EQ(ask(path).body, "{\"updates\":[\"tidewell-dill-9\"]}\n") << path;
    }
}

TEST_F(Firmware, RequestThatNamesNoUsableFileIsRefusedAndTouchesNothing) {
    const ApiDaemon daemon({});
    const std::string refused = jsonReply("{}\n", "400 Bad Request");
    for (const char *body :
         {"no JSON", "[]", "{}", "", R"({"update":7})", R"({"update":""})", R"({"update":"-c"})",
          R"({"update":"../tidewell-fennel-1.0.2"})", R"({"update":"holiday.ts"})",
          R"({"update":"tidewell-fennel-1.0.2;reboot"})", "{\"update\":\"$(reboot)\"}",
          R"({"update":"tidewell-fennel-1.0.2\u0000"})"}) {
        for (const char *path : {"/api/localfirmware/set", "/api/firmware/set"}) {
            const Reply reply = ask(path, body);
            EXPECT_EQ(reply.head + reply.body, refused) << path << " " << body;
        }
    }
    for (const char *body : {R"({"update":"tidewell-fennel-1.0.3"})", R"({"update":"folder"})"}) {
        EXPECT_EQ(ask("/api/localfirmware/set", body).status(), 400) << body;
    }
    EXPECT_EQ(files(), 5U);
    EXPECT_EQ(readFile("/etc/cron.d/crontab"), "1 /etc/init.d/tidewell\n2 other\n");
    EXPECT_EQ(ask("/api/stats").status(), 200);
}

TEST_F(Firmware, LocalUpdateStartsTheScriptAndSilencesTheApiButNotTheStream) {
    sim::UdpSink unit;
    const sim::SrtSender primary(5000);
    const ApiDaemon daemon({.primary = primary.uri()});
    ASSERT_TRUE(unit.received().grow());
    RawClient idle(kApiPort);
    const Reply reply = ask("/api/localfirmware/set", "{\"update\":\"tidewell-fennel-1.0.2\"}");
    EXPECT_EQ(reply.head + reply.body, jsonReply("{}\n"));
    expectCleanScript();
    EXPECT_EQ(readFile("/tmp/signals"), "0000000000000000 0000000180000006 ")
        << "nothing blocked; ignored: a background's SIGINT and SIGQUIT, libc's own 32 and 33";
    EXPECT_TRUE(isSilent());
    idle.send("GET / HTTP/1.1\r\n\r\n");
    idle.finish();
    EXPECT_TRUE(idle.closedByServer()) << "the page is silent too";
    EXPECT_EQ(files(), 3U) << "the file, the film and the folder";
    EXPECT_EQ(readFile("/tmp/crontab_then"), "2 other\n") << "before the script starts";
    EXPECT_TRUE(unit.received().grow());
}

TEST_F(Firmware, ServerUpdateIsAnsweredAndRunsWhatWasFetched) {
    writeFile(kRootCrontab, "1 tidewell\n2 other\n");
    sim::WebServer server;
    server.addUpload("tidewell-fennel-2", kScript);
    const ApiDaemon daemon({});
    EXPECT_EQ(ask("/api/firmware/set", "{\"update\":\"tidewell-fennel-2\"}").body, "{}\n");
    expectCleanScript();
    EXPECT_TRUE(isSilent());
    EXPECT_EQ(readFile(kRootCrontab), "2 other\n");
    EXPECT_EQ(readFile("/etc/cron.d/crontab"), "1 /etc/init.d/tidewell\n2 other\n");
    EXPECT_EQ(daemon.countLines("Updating to tidewell-fennel-2"), 1);
}

TEST_F(Firmware, FailedDownloadIsAnsweredAllTheSameAndTheApiGoesOn) {
    const ApiDaemon daemon({});
    const std::string update = "{\"update\":\"tidewell-fennel-2\"}";
    EXPECT_EQ(ask("/api/firmware/set", update).body, "{}\n") << "no server at all";
    sim::WebServer server;
    server.addUpload("tidewell-fennel-2", "echo cut");
    server.setManner(sim::WebManner::break_off);
    EXPECT_EQ(ask("/api/firmware/set", update).body, "{}\n");
    EXPECT_EQ(ask("/api/localfirmware/get").body, "{\"updates\":[]}\n")
        << "the old files made room for the download";
    EXPECT_EQ(readFile("/etc/cron.d/crontab"), "1 /etc/init.d/tidewell\n2 other\n");
    EXPECT_EQ(daemon.countLines("Downloading url "), 2);
    EXPECT_EQ(daemon.countLines("Curl perform failed. url = "), 2);
}

TEST_F(Firmware, ServerThatStaysSilentHoldsTheApiForTenSeconds) {
    sim::WebServer server;
    server.setManner(sim::WebManner::hang);
    const ApiDaemon daemon({});
    RawClient client(kApiPort);
    const auto start = std::chrono::steady_clock::now();
    client.send(requestText("/api/firmware/set", "{\"update\":\"tidewell-fennel-2\"}"));
    client.send(requestText("/api/firmware/get"));
    for (const char *body : {"{}\n", "{\"updates\":[]}\n"}) {
        EXPECT_TRUE(waitUntil([&] { return client.reply().body == body; }, 25s)) << body;
    }
    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GT(lasted, 18s);
    EXPECT_LT(lasted, 40s);
    EXPECT_EQ(ask("/api/localfirmware/get").body, "{\"updates\":[]}\n");
}

// The daemon's own writes to such a pipe never wait, and what does not fit is lost.
TEST_F(Firmware, ScriptWaitsForTheReaderOfAPipeThatItInherits) {
    int output[2];
    ASSERT_EQ(pipe(output), 0);
    fcntl(output[1], F_SETPIPE_SZ, 8192);
    fcntl(output[0], F_SETFL, O_NONBLOCK);
    writeFile(kMedia + "tidewell-fennel-1.0.2", "seq 100000 && echo all\n");
    const ApiDaemon daemon({.before_exec = [&] { dup2(output[1], 1); }});
    close(output[1]);
    ask("/api/localfirmware/set", "{\"update\":\"tidewell-fennel-1.0.2\"}");
    ASSERT_TRUE(waitUntil([&] {
        int waiting = 0;
        ioctl(output[0], FIONREAD, &waiting);
        return waiting >= 4096;
    }));
    std::string text;
    EXPECT_TRUE(waitUntil([&] {
        char bytes[65536];
        const ssize_t count = read(output[0], bytes, sizeof bytes);
        text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return text.ends_with("\n99999\n100000\nall\n");
    }));
    close(output[0]);
}

}  // namespace
