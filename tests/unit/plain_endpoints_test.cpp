// The endpoints without SRT: UDP both ways and the file input.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/shared/call_limit.h"
#include "endpoints/file_input.h"
#include "endpoints/payload.h"
#include "endpoints/udp_input.h"
#include "endpoints/udp_output.h"
#include "tests/support/files.h"
#include "tests/support/printed.h"

namespace {

constexpr int kPort = 9261;
const char *const kPipe = "/tmp/device";

auto openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Udp, DatagramArrivesWholeAndALoneSenderNoticesNothing) {
    const auto before = openDescriptors();
    {
        udp_output_t output("127.0.0.1", kPort);
        const std::string unit(kPayloadBytes, 'd');
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(output.write(unit.data(), unit.size()), kPayloadBytes);
        }
        udp_input_t input("127.0.0.1", kPort, nullptr);
        EXPECT_EQ(output.write(unit.data(), unit.size()), kPayloadBytes);
        char buffer[2000];
        EXPECT_EQ(input.read(buffer, sizeof buffer), kPayloadBytes);
        EXPECT_EQ(output.write(std::string(70'000, 'd').data(), 70'000), -1) << "too long for one";
        EXPECT_EQ(output.write(buffer, 0), 0);
        EXPECT_EQ(input.read(buffer, sizeof buffer), 0);
        EXPECT_EQ(input.read(buffer, sizeof buffer), -2);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Udp, ReceiverJoinsAGroupOnTheGivenInterfaceAndLeavesIt) {
    // The kernel's list of memberships, where the group stands as a number.
    const auto isMember = [] {
        return readFile("/proc/net/igmp").find("030201EF") != std::string::npos;
    };
    testing::internal::CaptureStdout();
    const int kept = dup(STDIN_FILENO);  // becomes the socket, which so outlives its receiver
    const int number = dup(STDIN_FILENO);
    close(number);
    {
        udp_input_t input("239.1.2.3", kPort, "127.0.0.1");
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "Addded multicast group 239.1.2.3 on 127.0.0.1\n");
        dup2(number, kept);
        EXPECT_TRUE(isMember());
        udp_output_t unicast("127.0.0.1", kPort);  // the wildcard address is bound
        unicast.write("x", 1);
        char buffer[10];
        EXPECT_EQ(input.read(buffer, sizeof buffer), 1);
    }
    EXPECT_FALSE(isMember());
    close(kept);
}

class FileInput : public testing::Test {
protected:
    FileInput() {
        EXPECT_EQ(mkfifo(kPipe, 0600), 0);
        writer = open(kPipe, O_RDWR);
    }
    void TearDown() override { close(writer); }
    void deliver(std::size_t bytes) {
        const std::string units(bytes, 'u');
        EXPECT_EQ(write(writer, units.data(), bytes), static_cast<ssize_t>(bytes));
    }

    int writer;
    char buffer[8000];
};

TEST_F(FileInput, ReadsWholeUnitsOrWhatThereIs) {
    file_input_t input(kPipe);
    const std::tuple<std::size_t, std::size_t, ssize_t> rows[] = {
        {4000, 2000, 1316}, {0, 8000, 2684}, {5264, 5264, 5264}, {100, 1316, 100}, {100, 1315, -2},
    };
    for (const auto &[delivered, length, result] : rows) {
        deliver(delivered);
        EXPECT_EQ(input.read(buffer, length), result) << length;
    }
}

TEST_F(FileInput, SilenceIsToldAfterASecondAndAnEndOrErrorAtOnce) {
    file_input_t input(kPipe);
    const CallLimit limit;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(input.read(buffer, sizeof buffer), -2);
    const std::chrono::duration<double> silence = std::chrono::steady_clock::now() - start;
    EXPECT_NEAR(silence.count(), 1.44, 0.45);
    std::thread later([&] { deliver(1316); });  // handed up at once
    EXPECT_EQ(input.read(buffer, sizeof buffer), 1316);
    later.join();
    close(writer);
    const auto end = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(input.read(buffer, sizeof buffer), -2);  // no writer: end of file
    }
    EXPECT_GE(std::chrono::steady_clock::now() - end, 100 * std::chrono::microseconds(400));

    file_input_t directory("/tmp");  // every read of it fails
    EXPECT_EQ(directory.read(buffer, sizeof buffer), -2);
    writer = open(kPipe, O_RDWR);
}

TEST_F(FileInput, DescriptorZeroCountsAsClosed) {
    const int kept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    {
        file_input_t zero(kPipe);
        deliver(1316);
        EXPECT_EQ(zero.read(buffer, sizeof buffer), -1);
    }
    dup2(kept, STDIN_FILENO);
    close(kept);
}

}  // namespace
