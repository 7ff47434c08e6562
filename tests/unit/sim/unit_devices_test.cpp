#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <fstream>

#include "sim/audio_levels.h"
#include "sim/child_process.h"
#include "sim/file_descriptor.h"
#include "sim/proxy_image.h"
#include "sim/time_namespace.h"
#include "sim/wait_until.h"
#include "sim/web_server.h"

namespace sim {
namespace {

// What `sh` makes of `script`; `before_exec` as in ProcessOptions.
std::string outputOf(const std::string &script, const std::function<void()> &before_exec = {}) {
    const FileDescriptor out(open("/dev/shm/output", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    ChildProcess shell(
        {.command = {"/bin/sh", "-c", script}, .out = out.get(), .before_exec = before_exec});
    EXPECT_TRUE(shell.waitForEnd(kDefaultLimit));
    std::ifstream file("/dev/shm/output");
    return {std::istreambuf_iterator<char>(file), {}};
}

constexpr const char *kReadWords =
    "perl -e 'open(D, \"+<\", \"/dev/proxyimg\"); open(Z, \"<\", \"/dev/zero\");"
    "ioctl(D, 0x20007005, 255) or print \"start failed \";"
    "for (1..3) { my $w = pack(\"L\", 0);"
    "  print ioctl(D, 0x20007006, $w) ? sprintf(\"%08x \", unpack(\"L\", $w)) : \"failed \"; }"
    "my $w = pack(\"L\", 0); print ioctl(Z, 0x20007006, $w) ? \"answered\" : \"passed on\";'";

TEST(UnitDevices, ProxyImageAnswersItsTwoRequestsAndNoOthers) {
    ProxyImage image;
    image.setWords({ProxyImage::word(3, 21), ProxyImage::word(15, 0xFFFFF)});
    EXPECT_EQ(outputOf(kReadWords, image.installer()), "30000150 f0fffff0 30000150 passed on");
    EXPECT_EQ(image.startRequests(), 1);
    EXPECT_EQ(image.wordRequests(), 3);
}

TEST(UnitDevices, ProxyImageFailsOnDemand) {
    ProxyImage image;
    image.setWords({ProxyImage::word(1, 1)});
    image.failReads(true);
    EXPECT_EQ(outputOf(kReadWords, image.installer()), "failed failed failed passed on");
}

TEST(UnitDevices, AudioLineMovesUntilItIsHeld) {
    AudioLevels levels;
    const auto line = [] {
        std::string text;
        std::getline(std::ifstream("/dev/audiolevels") >> std::ws, text);
        return text;
    };
    const std::string first = line();
    EXPECT_TRUE(waitUntil([&] { return line() != first; }));
    levels.setLine("1,2,3");
    EXPECT_EQ(line(), "1,2,3");
}

TEST(UnitDevices, WebServerShowsAnotherPictureEachTimeAndOffersFirmware) {
    WebServer server;
    server.addUpload("tidewell-fennel-1.0.9", "#!/bin/sh\n");
    const std::string fetch = "curl -s --max-time 5 ";

    EXPECT_EQ(outputOf(fetch + "http://127.0.0.1/encThumbnail | head -c 6"), "GIF89a");
    EXPECT_NE(outputOf(fetch + "http://127.0.0.1/thumbnail0.jpg | md5sum"),
              outputOf(fetch + "http://127.0.0.1/thumbnail0.jpg | md5sum"));
    EXPECT_EQ(outputOf(fetch + "http://firmware.qorbi.example/uploads/ | grep -c tidewell-fennel"),
              "1\n");
    EXPECT_EQ(outputOf(fetch + "http://firmware.qorbi.example/uploads/tidewell-fennel-1.0.9"),
              "#!/bin/sh\n");
    server.setManner(WebManner::break_off);
    EXPECT_EQ(outputOf(fetch + "http://127.0.0.1/encThumbnail >/dev/null || echo $?"), "18\n");
}

TEST(TimeNamespace, MicrosecondCountWrapsSoonAfterTheStart) {
    enterTimeNamespace(offsetToWrapAfter(std::chrono::seconds(5)));

    const std::string microseconds =
        outputOf("perl -MTime::HiRes=clock_gettime,CLOCK_MONOTONIC -e "
                 "'printf \"%d\", clock_gettime(CLOCK_MONOTONIC) * 1e6'");

    const auto left = std::uint32_t{0} - static_cast<std::uint32_t>(std::stoull(microseconds));
    EXPECT_LE(left, 5'000'000U);
    EXPECT_GT(left, 2'000'000U);
}

}  // namespace
}  // namespace sim
