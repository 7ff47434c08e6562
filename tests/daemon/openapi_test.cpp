// docs/openapi.yaml against the daemon: every route, status, key, type and example.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <set>

#include "sim/audio_levels.h"
#include "sim/srt_sender.h"
#include "sim/web_server.h"
#include "tests/daemon/api_client.h"
#include "tests/support/files.h"

namespace {

const std::string kSource = TIDEWELL_SOURCE_DIR;
const std::string kCheck =
    "node " + kSource + "/tools/openapi_check.mjs " + kSource + "/docs/openapi.yaml";

std::set<std::string> documentedPaths() {
    EXPECT_EQ(system((kCheck + " >/tmp/paths").c_str()), 0);
    std::set<std::string> paths;
    std::ifstream file("/tmp/paths");
    for (std::string path; file >> path;) {
        paths.insert(path);
    }
    return paths;
}

class OpenApi : public testing::Test {
protected:
    OpenApi() {
        server.addUpload("tidewell-fennel-1.0.9", "echo\n");
        server.addUpload("tidewell-fennel-1.0.10", "echo\n");
        levels.setLine("3,2,1\n");
    }
    sim::WebServer server;
    sim::AudioLevels levels;
};

TEST_F(OpenApi, NamesEveryRouteAndNoOther) {
    const std::string table = readFile(kSource + "/api/dispatch.cpp");
    const std::string row = "    {\"/";
    std::set<std::string> routes;
    for (auto at = table.find(row); at != std::string::npos; at = table.find(row, at + 1)) {
        routes.insert(table.substr(at + 6, table.find('"', at + 6) - at - 6));
    }
    EXPECT_EQ(routes.size(), 17U);
    EXPECT_EQ(documentedPaths(), routes);
}

// A daemon for each path, since some of them end or silence it.
TEST_F(OpenApi, ExamplesAreWhatTheDaemonAnswers) {
    for (const std::string &path : documentedPaths()) {
        for (const char *name : {"tidewell-fennel-1.0.2", "tidewell-fennel-1.0.10"}) {
            writeFile(std::string("/media/hd0/media/") + name, "echo\n");
        }
        ApiDaemon daemon({});
        ASSERT_TRUE(daemon.waitForLine("SRT open failed")) << "by then the settings are read";
        EXPECT_EQ(system(std::string(kCheck).append(" ").append(path).c_str()), 0) << path;
        daemon.signal(SIGKILL);
        daemon.waitForEnd();
    }
}

TEST_F(OpenApi, StatsHaveTheirKeysOnBothFamilies) {
    const sim::SrtSender sender(5000);
    writeFile("/dev/rt_ingress4", "");
    const struct {
        std::optional<std::string> product;
        std::string address;
        std::string awaited;
    } rows[] = {{{}, sender.uri(), "\"endpoint\":\"127.0.0.1:5000\""},
                {"WX-1", "srt://127.0.0.1:5001?mode=listener", "\"msSndBuf\":0"}};
    for (const auto &row : rows) {
        ApiDaemon daemon({.primary = row.address, .product = row.product});
        ASSERT_TRUE(sim::waitUntil(
            [&] { return ask("/api/stats").body.find(row.awaited) != std::string::npos; }));
        EXPECT_EQ(system((kCheck + " /api/stats once").c_str()), 0) << ask("/api/stats").body;
    }
}

}  // namespace
