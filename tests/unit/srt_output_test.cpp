#include "endpoints/srt_output.h"

#include "endpoints/payload.h"
#include "tests/unit/srt_endpoint_test.h"

namespace {

using sim::waitUntil;

const std::string kListener = "srt://127.0.0.1:5000?mode=listener";
const std::string kListenSteps =
    "srt bind address\nsrt setsockflag\nsrt bind\nsrt listen\nsrt listening\n";

class SrtOutputTest : public SrtEndpointTest {
protected:
    std::vector<int> messageSizes(RawSrt &receiver, std::size_t count) {
        std::vector<int> sizes;
        while (sizes.size() < count) {
            const std::string message = receiver.receive();
            if (message.empty()) {
                break;
            }
            sizes.push_back(static_cast<int>(message.size()));
        }
        return sizes;
    }

    const std::string buffer = std::string(1000 * kPayloadBytes, 'd');
};

TEST_F(SrtOutputTest, OpensOrRefusesAndSaysWhy) {
    const struct {
        const char *name;
        std::string uri, printed;
    } rows[] = {
        {"no port", "srt://127.0.0.1?mode=listener", "THROWN"},
        {"no mode", "srt://127.0.0.1:5000?latency=5", "latency 5\nsrt mode not set\nTHROWN"},
        {"listener on a name", "srt://localhost:5000?mode=listener",
         "srt bind address\nsrt mode 2\nTHROWN"},
        {"keys of the other side", kListener + "&passphrase=x&pbkeylen=7&rcvbuf=1&streamrate=1",
         kListenSteps + "srt mode 2\nOPEN"},
        {"nobody calls back", "srt://127.0.0.1:5001?mode=caller&latency=20",
         "latency 20\nsrt mode 1\nsrt_connect: Connection setup failure: connection timed "
         "out\nTHROWN"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(tryToOpen<srt_output>(enabledUri(row.uri)), row.printed);
    }
}

TEST_F(SrtOutputTest, CutsABufferIntoMessages) {
    RawSrt listener;
    listener.set(SRTO_LATENCY, 20);
    ASSERT_TRUE(listener.listen(5000));
    srt_output output(enabledUri("srt://127.0.0.1:5000?mode=caller"));
    RawSrt receiver = listener.accept();
    const struct {
        int length;
        std::vector<int> messages;
    } rows[] = {{1316, {1316}}, {1317, {1316, 1}}, {1315, {1315}}, {2632, {1316, 1316}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        EXPECT_EQ(output.write(buffer.data(), row.length), row.length);
        EXPECT_EQ(messageSizes(receiver, row.messages.size()), row.messages);
    }
    EXPECT_EQ(statsOf(output)["endpoint"], "127.0.0.1:5000");
    EXPECT_FALSE(statsOf(output)["recv"].isMember("endpoint"));
    EXPECT_EQ(statsOf(output)["recv"]["packets"], 6);

    receiver.close();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(waitUntil([&] { return output.write(buffer.data(), 1316) == 0; }));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "srt_sendmsg: Connection was broken\n");
}

TEST_F(SrtOutputTest, ListenerDropsWhatItHasNoClientFor) {
    srt_output output(enabledUri(kListener));
    testing::internal::CaptureStdout();
    EXPECT_EQ(output.write("early", 5), -2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "No client, waiting\n");

    RawSrt client;
    client.set(SRTO_LATENCY, 20);
    ASSERT_TRUE(client.connect(5000));
    testing::internal::CaptureStdout();
    std::vector<int> results;
    const auto write = [&](const char *text) {
        results.push_back(output.write(text, 4));
        return results.back() == 4;
    };
    waitUntil([&] { return write("lost"); });  // -2 until and when the client is taken in
    client.set(SRTO_RCVTIMEO, 100);
    // More than one, as libsrt loses what is sent in the instant of connecting.
    std::string received;
    waitUntil([&] { return write("kept") && !(received = client.receive()).empty(); });

    client.close();
    // Whichever sees it first, the state test or a send.
    int result = 4;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(waitUntil([&] { return (result = output.write("x", 1)) < 1; }));
    const std::string errors = testing::internal::GetCapturedStderr();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(results.front(), -2) << "the call that takes the client in sends nothing";
    EXPECT_EQ(received, "lost") << "the first that was sent";
    if (result == -2) {
        EXPECT_NE(printed.find("source disconnected. status=6\n"), std::string::npos) << printed;
    } else {
        EXPECT_EQ(errors.substr(0, 13), "srt_sendmsg: ") << errors;
    }
}

TEST_F(SrtOutputTest, OptionsReachLibsrt) {
    RawSrt listener;
    listener.set(SRTO_LATENCY, 20);
    ASSERT_TRUE(listener.listen(5000));
    srt_output output(
        enabledUri("srt://127.0.0.1:5000?mode=caller&latency=300&sndbuf=1456000&streamid=a%2520b"));
    RawSrt receiver = listener.accept();
    EXPECT_EQ(receiver.get(SRTO_RCVLATENCY), 300);
    EXPECT_EQ(receiver.streamId(), "a b");
    EXPECT_NEAR(statsOf(output)["recv"]["byteAvailSndBuf"].asInt(), 1456000, 50000);
}

TEST_F(SrtOutputTest, WholeReadGoesOutInOrder) {
    srt_output output(enabledUri(kListener + "&latency=200"));
    RawSrt client;
    ASSERT_TRUE(client.connect(5000));
    ASSERT_TRUE(waitUntil([&] { return output.write("x", 1) == 1; }));
    std::string numbered;
    for (int i = 0; i < 1000; ++i) {
        std::string unit = std::to_string(i);
        unit.resize(kPayloadBytes, ' ');
        numbered += unit;
    }
    EXPECT_EQ(output.write(numbered.data(), 1'316'000), 1'316'000);
    std::string message = client.receive();
    while (message == "x") {
        message = client.receive();
    }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(message.size(), std::size_t{kPayloadBytes});
        ASSERT_EQ(std::stoi(message), i);
        message = i < 999 ? client.receive() : "";
    }
}

}  // namespace
