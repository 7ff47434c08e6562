#include "core/shared/log_ring.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include <syslog.h>
#include <unistd.h>

#include "tests/support/files.h"

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
    openlog("tidewell", LOG_PERROR, LOG_USER);
    LogRing ring(100);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();

    ring.logLine("Startup\n");

    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "tidewell: Startup\n");
    EXPECT_EQ(printed, readFile(kLog));
    struct tm time {};
    const char *rest = strptime(printed.c_str(), "%h %e %T ", &time);
    ASSERT_NE(rest, nullptr) << printed;
    EXPECT_STREQ(rest, ": Startup\n");
    EXPECT_EQ(rest - printed.c_str(), 16);  // a single-digit day is padded with a blank
}

TEST(LogRing, OneLineTooManyDropsTheOldestFromRingAndFile) {
    LogRing ring(100);
    for (int i = 1; i <= 101; ++i) {
        ring.logPrintf("%d\n", i);
    }
    std::string expected;
    for (int i = 2; i <= 101; ++i) {
        expected += std::to_string(i) + ",";
    }
    EXPECT_EQ(messages(), expected);
}

TEST(LogRing, LongMessageIsCutWithItsTimeTo1023Characters) {
    LogRing ring(2);
    testing::internal::CaptureStderr();
    ring.logPrintf("%s", std::string(2000, 'x').c_str());
    EXPECT_EQ(readFile(kLog).size(), 1023U);
    // The message itself was cut to 1023 before the time came in front of it.
    EXPECT_LE(testing::internal::GetCapturedStderr().size(), 1023U + sizeof "log_ring_test: ");
}

TEST(LogRing, WhatStandsInTheFilesPlaceIsNeverWrittenThrough) {
    writeFile("/tmp/precious", "keep");
    for (const char *planted : {"/tmp/proxy.log", "/tmp/proxy.log.new"}) {
        SCOPED_TRACE(planted);
        fs::remove_all(planted);
        fs::create_symlink("/tmp/precious", planted);
        LogRing(1).logLine("new\n");
        EXPECT_EQ(readFile("/tmp/precious"), "keep");
        EXPECT_FALSE(fs::is_symlink(kLog));
        EXPECT_EQ(messages(), "new,");
    }
}

TEST(LogRing, EventsGoOnWhileTheFileCannotBeWritten) {
    LogRing ring(3);
    fs::remove_all(kLog);
    fs::create_directory(kLog);
    ring.logLine("first\n");
    EXPECT_FALSE(fs::exists("/tmp/proxy.log.new"));

    fs::remove(kLog);
    ring.logLine("second\n");
    EXPECT_EQ(messages(), "first,second,");
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
