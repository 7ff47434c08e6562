#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <curl/curl.h>

#include "api/firmware_files.h"
#include "api/firmware_server.h"
#include "core/shared/descriptor.h"
#include "sim/loopback.h"
#include "sim/web_server.h"
#include "tests/support/files.h"

namespace {

using Names = std::vector<std::string>;
namespace fs = std::filesystem;

TEST(FirmwareName, IsWhatNeitherAShellNorAPathCanMisread) {
    const std::string prefix = "tidewell-";
    const std::string longest = prefix + std::string(191, 'a');
    EXPECT_TRUE(isFirmwareName("tidewell-fennel-1.0.10"));
    EXPECT_TRUE(isFirmwareName("tidewell-a_B+c~d-9"));
    EXPECT_TRUE(isFirmwareName(longest));
    for (const char *end : {"a b", "a;b", "a$b", "a`b", "a/b", "/../b", "a\nb", "a&b", "a|b",
                            "a\\b", "a'b", "a*", "\xc3\xa4"}) {
        EXPECT_FALSE(isFirmwareName(prefix + end)) << end;
    }
    for (const char *name : {"", ".", "-rf", "holiday.ts", "notes.txt", "Tidewell-1", "tidewell",
                             ".tidewell-1", "../tidewell-1"}) {
        EXPECT_FALSE(isFirmwareName(name)) << name;
    }
    EXPECT_FALSE(isFirmwareName(longest + "a"));
    EXPECT_FALSE(isFirmwareName(std::string("tidewell-\0b", 11)));
}

TEST(ServerListing, GivesTheFirstLinkOfEachLineThatFits) {
    std::string endless = "<a href=\"tidewell-fennel-1\">";  // of links without an end
    while (endless.size() < 1'000'000) {
        endless += "<a href=\"tidewell-fennel";
    }
    const std::tuple<std::string, const char *, std::set<std::string>> rows[] = {
        {"", "fennel", {}},
        {endless, "fennel", {"tidewell-fennel-1"}},
        {endless.substr(28), "fennel", {}},
        {R"(<a href="tidewell-fennel-2">x</a>
            <a href="tidewell-fennel-10">y</a>
            <a href="tidewell-fennel-2">again</a>)",
         "fennel",
         {"tidewell-fennel-10", "tidewell-fennel-2"}},
        {R"(<a href="tidewell-fennel-1"><a href="tidewell-fennel-2">)",
         "fennel",
         {"tidewell-fennel-1"}},
        {R"(<a href="tidewell-dill-1">)", "fennel", {}},
        {R"(<A HREF="tidewell-fennel-1">)", "fennel", {}},
        {R"(<a href='tidewell-fennel-2'>)", "fennel", {}},
        {R"(<a href="tidewell-fennel-3" >)", "fennel", {}},
        {"<a href=\"tidewell-fennel\n-1\">", "fennel", {}},
        {R"(<a href="tidewell-fennel-1">)", "(unclosed", {}},
        {R"(<a href="tidewell-fennel-1">)", "[", {}},
        {"<a href=\"tidewell-a\">\nb1\">", "a)|(b", {"tidewell-a"}},
        {R"(<a href="tidewell-fennel-1">)", "", {"tidewell-fennel-1"}},
    };
    for (const auto &[listing, platform, names] : rows) {
        EXPECT_EQ(scrapeFirmwareNames(listing, platform), names)
            << platform << ": " << listing.substr(0, 200);
    }
}

class FirmwareDirectory : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(directory);
        for (const char *name :
             {"tidewell-fennel-1.0.2", "tidewell-fennel-1.0.10", "tidewell-fennel-1.0.10.sig",
              "tidewell-fennel-1.0.9", "tidewell-dill-3", "holiday.ts"}) {
            writeFile(directory + name, "echo");
        }
    }
    Names names() const {
        Names all;
        for (const auto &entry : fs::directory_iterator(directory)) {
            all.push_back(entry.path().filename());
        }
        std::sort(all.begin(), all.end());
        return all;
    }
    const std::string directory = "/tmp/firmware/";
};

TEST_F(FirmwareDirectory, ListsFromTheHighestVersionDownAndPrunesAllButOneName) {
    EXPECT_EQ(localFirmware(directory, "tidewell-fennel"),
              (Names{"tidewell-fennel-1.0.10.sig", "tidewell-fennel-1.0.10",
                     "tidewell-fennel-1.0.9", "tidewell-fennel-1.0.2"}));
    EXPECT_EQ(localFirmware("/tmp/nowhere/", "tidewell-fennel"), Names{});
    pruneFirmware("tidewell-fennel-1.0.10", "/tmp/nowhere/");
    pruneFirmware("tidewell-fennel-1.0.10", directory);
    EXPECT_EQ(names(),
              (Names{"holiday.ts", "tidewell-fennel-1.0.10", "tidewell-fennel-1.0.10.sig"}));
}

TEST_F(FirmwareDirectory, DownloadMakesRoomFirstAndLeavesNoPartBehind) {
    sim::WebServer server;
    const std::string base = "http://127.0.0.1/uploads/";
    server.addUpload("tidewell-fennel-2", "echo hello\n");
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-2", directory),
              directory + "tidewell-fennel-2");
    EXPECT_EQ(readFile(directory + "tidewell-fennel-2"), "echo hello\n");
    server.setReply("/uploads/tidewell-fennel-2", "echo <h1>Gone</h1>\n", 410);
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-2", directory), "") << "an error page";
    server.addUpload("tidewell-fennel-2b", "echo cut\n");
    server.setManner(sim::WebManner::break_off);
    writeFile(directory + "tidewell-fennel-2b", "echo whole\n");
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-2", directory), "");
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-2b", directory), "");
    EXPECT_EQ(names(), (Names{"holiday.ts", "tidewell-fennel-2b"}));
    EXPECT_EQ(readFile(directory + "tidewell-fennel-2b"), "echo whole\n");
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-3", directory), "");
    EXPECT_EQ(names(), Names{"holiday.ts"});
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-3", "/tmp/nowhere/"), "");
    server.setManner(sim::WebManner::answer);
    // Small enough to wait in stdio's buffer until the file is closed.
    fs::create_symlink("/dev/full", directory + ".tidewell-download");
    EXPECT_EQ(downloadFirmware(base, "tidewell-fennel-2b", directory), "") << "the disk is full";
    EXPECT_EQ(names(), Names{"holiday.ts"});
}

// The lookup alone would last twenty seconds.
TEST_F(FirmwareDirectory, SilentNameServersAreWaitedForTenSecondsAtMost) {
#if LIBCURL_VERSION_NUM < 0x075700
    GTEST_SKIP() << "this libcurl waits for its lookup";
#endif
    fs::remove("/etc/resolv.conf");
    writeFile("/etc/resolv.conf", "nameserver 127.0.0.1\nnameserver 127.0.0.1\n");
    const Descriptor silent(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(sim::bindTo(silent.number(), 53), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(downloadFirmware("http://firmware.test/", "tidewell-fennel-2", directory), "");
    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GT(lasted, std::chrono::seconds(9)) << "nobody was asked";
    EXPECT_LT(lasted, std::chrono::seconds(13));
}

}  // namespace
