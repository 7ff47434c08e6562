#include "endpoints/srt_output.h"

#include "endpoints/payload.h"
#include "tests/unit/srt_endpoint_test.h"

namespace {

using sim::waitUntil;

class SrtOutputTest : public SrtEndpointTest {};

TEST_F(SrtOutputTest, OpensOrRefusesAndSaysWhy) {
    const std::tuple<const char *, std::string, std::string> rows[] = {
        {"no port", "srt://127.0.0.1?mode=listener", "THROWN"},
        {"no mode", "srt://127.0.0.1:5000?latency=5", "latency 5\nsrt mode not set\nTHROWN"},
        {"listener on a name", "srt://localhost:5000?mode=listener",
         "srt bind address\nsrt mode 2\nTHROWN"},
        {"keys of the other side", kListener + "&passphrase=x&pbkeylen=7&rcvbuf=1&streamrate=1",
         kListenSteps + "srt mode 2\nOPEN"},
        {"nobody calls back", "srt://127.0.0.1:5001?mode=caller&latency=20",
         "latency 20\nsrt mode 1\n"
         "srt_connect: Connection setup failure: connection timed out\nTHROWN"},
    };
    for (const auto &[name, uri, printed] : rows) {
        EXPECT_EQ(tryToOpen<srt_output>(enabledUri(uri)), printed) << name;
    }
}

TEST_F(SrtOutputTest, OptionsReachTheSocket) {
    const std::tuple<const char *, SRT_SOCKOPT, int> rows[] = {
        {"&latency=500", SRTO_RCVLATENCY, 500},
        {"&latency=0", SRTO_RCVLATENCY, 0},
        {"&latency=-5", SRTO_RCVLATENCY, 120},
        {"&fc=2000", SRTO_FC, 2000},
        {"&fc=0", SRTO_FC, 25600},
        {"&sndbuf=1472000", SRTO_SNDBUF, 1472000},
        {"&sndbuf=0", SRTO_SNDBUF, RawSrt().get(SRTO_SNDBUF)},
        {"", SRTO_RCVSYN, 0},
        {"", SRTO_REUSEADDR, 1},
        {"", SRTO_SENDER, 1},
    };
    for (const auto &[options, option, value] : rows) {
        EXPECT_EQ(optionOf<srt_output>(kListener + options, option), value) << options << option;
    }
    RawSrt listener;
    ASSERT_TRUE(listener.listen(5000));
    srt_output output(enabledUri(kCaller + "&streamid=a%2520b"));
    EXPECT_EQ(listener.accept().streamId(), "a b");
}

TEST_F(SrtOutputTest, CutsABufferIntoMessages) {
    RawSrt listener;
    listener.set(SRTO_LATENCY, 20);
    ASSERT_TRUE(listener.listen(5000));
    srt_output output(enabledUri(kCaller));
    RawSrt receiver = listener.accept();
    const std::string buffer(std::size_t{2} * kPayloadBytes, 'd');
    const std::pair<int, std::vector<std::size_t>> rows[] = {
        {1316, {1316}}, {1317, {1316, 1}}, {1315, {1315}}, {2632, {1316, 1316}}};
    for (const auto &[length, messages] : rows) {
        EXPECT_EQ(output.write(buffer.data(), length), length);
        for (const std::size_t size : messages) {
            EXPECT_EQ(receiver.receive().size(), size) << "of " << length;
        }
    }
    EXPECT_EQ(statsOf(output)["endpoint"], "127.0.0.1:5000");
    EXPECT_FALSE(statsOf(output)["recv"].isMember("endpoint"));
    std::string line;
    EXPECT_EQ(output.status_line(&line), 1);
    EXPECT_EQ(line.substr(0, 4), "RTT[");
    EXPECT_EQ(statsOf(output)["recv"]["packets"], 6) << "asking for the line clears nothing";

    receiver.close();
    const auto fails = [&] { return output.write(buffer.data(), 1316) == 0; };
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(waitUntil(fails)); }),
              "srt_sendmsg: Connection was broken\n");
}

TEST_F(SrtOutputTest, ListenerDropsWhatItHasNoClientFor) {
    srt_output output(enabledUri(kListener));
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(output.write("early", 5), -2); }), "No client, waiting\n");
    RawSrt client;
    client.set(SRTO_LATENCY, 20);
    client.set(SRTO_RCVTIMEO, 100);
    ASSERT_TRUE(client.connect(5000));
    const std::string told = printedBy([&] {
        EXPECT_EQ(output.write("lost", 4), -2) << "the call that takes the client in";
        // More than one, as libsrt loses what is sent in the instant of connecting.
        std::string received;
        waitUntil(
            [&] { return output.write("kept", 4) == 4 && !(received = client.receive()).empty(); });
        EXPECT_EQ(received, "kept");
        client.close();
        EXPECT_TRUE(waitUntil([&] { return statsOf(output)["window"]["flow"] == 0; }));
        EXPECT_EQ(output.write("x", 1), -2) << "the state is tested before anything is sent";
    });
    EXPECT_NE(told.find("source disconnected. status="), std::string::npos) << told;
}

}  // namespace
