#include "core/shared/log_ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "sim/file_descriptor.h"
#include "tests/support/files.h"
#include "tests/support/printed.h"

// Takes the C library's place.
extern "C" time_t time(time_t *) noexcept {
    return 3 * 86400 + 3661;
}

namespace {

namespace fs = std::filesystem;

const std::string kLog = "/tmp/proxy.log";

// The lines of the file without their time, so that a test can compare them.
std::string messages() {
    std::istringstream file(readFile(kLog));
    std::string all;
    for (std::string line; std::getline(file, line);) {
        all += line.substr(line.find(" : ") + 3) + ",";
    }
    return all;
}

TEST(LogRing, LineGoesToSyslogStdoutAndFileWithABlankBeforeTheColon) {
    setenv("TZ", "UTC-1", 1);
    LogRing ring(100);
    const sim::FileDescriptor logger(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    ASSERT_EQ(bind(logger.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const std::string printed = printedBy([&] { ring.logLine("a%20b\n"); });
    EXPECT_EQ(readFile(kLog), "Jan  4 02:01:01 : a%20b\n");
    EXPECT_EQ(printed, readFile(kLog) + "tidewell: a%20b\n");
    char sent[100];
    const ssize_t length = recv(logger.get(), sent, sizeof sent, MSG_DONTWAIT);
    ASSERT_GT(length, 0);
    EXPECT_EQ(std::string(sent, static_cast<std::size_t>(length)),
              "<14>Jan  4 02:01:01 tidewell: a%20b\n");
}

TEST(LogRing, OneLineTooManyDropsTheOldestFromRingAndFile) {
    LogRing ring(100);
    for (int i = 1; i <= 101; ++i) {
        ring.logPrintf("%d\n", i);
    }
    const std::string all = messages();
    EXPECT_EQ(all.substr(0, 4), "2,3,");
    EXPECT_EQ(std::count(all.begin(), all.end(), ','), 100);
    EXPECT_TRUE(all.ends_with(",100,101,"));
}

TEST(LogRing, LongMessageIsCutWithItsTimeTo1023Characters) {
    LogRing ring(2);
    ring.logPrintf("%s", std::string(2000, 'x').c_str());
    EXPECT_EQ(readFile(kLog).size(), 1023U);
}

TEST(LogRing, WhatStandsInTheFilesPlaceIsNeverWrittenThrough) {
    writeFile("/tmp/precious", "keep");
    for (const std::string &planted : {kLog, kLog + ".new"}) {
        SCOPED_TRACE(planted);
        fs::remove_all(planted);
        fs::create_symlink("/tmp/precious", planted);
        LogRing(1).logLine("new\n");
        EXPECT_EQ(readFile("/tmp/precious"), "keep");
        EXPECT_FALSE(fs::is_symlink(kLog));
        EXPECT_EQ(messages(), "new,");
    }
}

TEST(LogRing, EventsGoOnPastADirectoryInTheFilesPlace) {
    LogRing ring(3);
    fs::create_directory(kLog);
    ring.logLine("1\n");
    EXPECT_FALSE(fs::exists(kLog + ".new"));
    fs::remove(kLog);
    ring.logLine("2\n");
    EXPECT_EQ(messages(), "1,2,");
    fs::create_directory(kLog + ".new");
    ring.logLine("3\n");
    EXPECT_EQ(messages(), "1,2,3,");
    fs::create_directories(kLog + ".new/full");
    ring.logLine("4\n");
    EXPECT_EQ(messages(), "2,3,4,");
}

TEST(LogRing, ReaderNeverSeesAHalfWrittenFileAndWritersDoNotMix) {
    LogRing ring(50);
    ring.logLine("a\n");
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 300; ++i) {
            ring.logPrintf("%s\n", std::string(200, 'a').c_str());
        }
        done = true;
    });
    while (!done) {
        const std::string text = readFile(kLog);
        ASSERT_FALSE(text.empty());
        ASSERT_EQ(text.back(), '\n');
        ring.logPrintf("%s\n", std::string(200, 'b').c_str());
    }
    writer.join();
    std::istringstream file(readFile(kLog));
    for (std::string line; std::getline(file, line);) {
        EXPECT_EQ(line.size(), 18U + 200U) << line;
    }
}

}  // namespace
