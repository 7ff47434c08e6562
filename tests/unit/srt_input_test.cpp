#include "endpoints/srt_input.h"

#include "tests/unit/srt_endpoint_test.h"

namespace {

const std::string kListenSteps =
    "srt bind address\nsrt setsockflag\nsrt bind\nsrt listen\nsrt listening\n";

std::string query(const std::string &options) {
    return "srt://127.0.0.1:5000?mode=listener&" + options;
}

class SrtInputTest : public SrtEndpointTest {
protected:
    // Reads until something other than -2 comes.
    int readNext(srt_input &input) {
        int result = -2;
        sim::waitUntil([&] { return (result = input.read(buffer, sizeof buffer)) != -2; });
        return result;
    }

    // libsrt loses what is sent in the instant of connecting, and asks for it again only
    // when more comes: so the far end sends until something has arrived.
    std::string firstOf(RawSrt &sender, srt_input &input, const std::string &message) {
        int result = -2;
        sim::waitUntil([&] {
            return sender.send(message) && (result = input.read(buffer, sizeof buffer)) != -2;
        });
        return result > 0 ? std::string(buffer, static_cast<std::size_t>(result)) : "";
    }

    char buffer[1500];
};

TEST_F(SrtInputTest, OpensOrRefusesAndSaysWhy) {
    const struct {
        const char *name;
        std::string uri, printed;
    } rows[] = {
        {"no port", "srt://127.0.0.1?mode=listener", "THROWN"},
        {"port past 65535", "srt://127.0.0.1:65536?mode=listener", "THROWN"},
        {"port wraps to a good one", "srt://127.0.0.1:70536?mode=listener", "THROWN"},
        {"no mode", "srt://127.0.0.1:5000", "srt mode not set\nTHROWN"},
        {"mode in capitals", "srt://127.0.0.1:5000?mode=Caller", "srt mode not set\nTHROWN"},
        {"listener on a name", "srt://localhost:5000?mode=listener", "srt bind address\nTHROWN"},
        {"listener on a foreign address", "srt://192.0.2.1:5000?mode=listener",
         "srt bind address\nsrt setsockflag\nsrt bind\n"
         "srt_bind: Connection setup failure: unable to create/configure SRT socket\nTHROWN"},
        {"pbkeylen 0", query("pbkeylen=0"), "pbkeylen = 0\n" + kListenSteps + "OPEN"},
        {"pbkeylen 24", query("pbkeylen=24"), "pbkeylen = 24\n" + kListenSteps + "OPEN"},
        {"pbkeylen 8", query("pbkeylen=8"), "t: Invalid pbkeylen 8\nTHROWN"},
        {"pbkeylen text", query("pbkeylen=x"), "pbkeylen = 0\n" + kListenSteps + "OPEN"},
        {"passphrase of 9", query("passphrase=123456789"),
         "t: Invalid passphrase length: 9, should be 10-80\nTHROWN"},
        {"passphrase of 10", query("passphrase=1234567890"), kListenSteps + "OPEN"},
        {"passphrase of 80", query("passphrase=" + std::string(80, 'p')), kListenSteps + "OPEN"},
        {"passphrase of 81", query("passphrase=" + std::string(81, 'p')),
         "t: Invalid passphrase length: 81, should be 10-80\nTHROWN"},
        {"passphrase counts after its decoding", query("passphrase=12345678%2525"),
         "t: Invalid passphrase length: 9, should be 10-80\nTHROWN"},
        {"passphrase ends at a NUL", query("passphrase=123456789%25002"),
         "t: Invalid passphrase length: 9, should be 10-80\nTHROWN"},
        {"passphrase complains before pbkeylen", query("pbkeylen=8&passphrase=1"),
         "t: Invalid passphrase length: 1, should be 10-80\nTHROWN"},
        {"nobody calls back", "srt://127.0.0.1:5001?mode=caller",
         "srt connect\nsrt_connect: Connection setup failure: connection timed out\nTHROWN"},
        {"name that does not resolve", "srt://no.such.name.invalid:5001?mode=caller",
         "getaddrinfo: Temporary failure in name resolution\nTHROWN"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(tryToOpen<srt_input>(enabledUri(row.uri)), row.printed);
    }
    StreamUri disabled = enabledUri(query(""));
    disabled.enable = false;
    EXPECT_EQ(tryToOpen<srt_input>(disabled), "THROWN");
}

TEST_F(SrtInputTest, ListenerGoesThroughItsStatesOneStepACall) {
    srt_input input(enabledUri(query("latency=20")));
    testing::internal::CaptureStdout();
    EXPECT_EQ(input.read(buffer, sizeof buffer), -2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "No client, waiting\n");
    EXPECT_EQ(statsOf(input)["endpoint"], "");
    std::string line = "untouched";
    EXPECT_EQ(input.status_line(&line), 0);
    EXPECT_EQ(line, "untouched");

    for (int visit = 0; visit < 2; ++visit) {
        testing::internal::CaptureStdout();
        RawSrt client;
        ASSERT_TRUE(client.connect(5000));
        ASSERT_TRUE(sim::waitUntil([&] {
            EXPECT_EQ(input.read(buffer, sizeof buffer), -2);  // until and when it is accepted
            return input.status_line(&line) == 1;
        }));
        ASSERT_TRUE(client.send("first"));
        ASSERT_TRUE(client.send("second one"));
        EXPECT_EQ(readNext(input), 5);
        EXPECT_EQ(readNext(input), 10);
        EXPECT_EQ(std::string(buffer, 10), "second one");
        EXPECT_EQ(input.status_line(&line), 1);
        EXPECT_EQ(line.substr(0, 9), "msRcvBuf[");
        const std::string peer = statsOf(input)["recv"]["endpoint"].asString();
        EXPECT_EQ(peer.substr(0, 10), "127.0.0.1:");

        client.close();
        std::string printed;
        EXPECT_TRUE(sim::waitUntil([&] {
            const int result = input.read(buffer, sizeof buffer);
            EXPECT_EQ(result, -2);
            return !input.status_line(&line);
        }));
        printed = testing::internal::GetCapturedStdout();
        printed.erase(0, printed.find("new connection"));  // it may have been late
        // Broken or, a moment later, closed.
        if (printed.ends_with("status=8\n")) {
            printed.replace(printed.size() - 2, 1, "6");
        }
        EXPECT_EQ(printed, "new connection: " + peer + "\nsource disconnected. status=6\n");
        EXPECT_EQ(statsOf(input)["endpoint"], peer) << "the last peer stays shown";
        EXPECT_EQ(statsOf(input)["recv"]["packets"], 0);
    }
}

TEST_F(SrtInputTest, ListenerWithAStreamIdAdmitsOnlyThatOne) {
    srt_input input(enabledUri(query("streamid=cam%25201")));
    for (const char *wrong : {"", "cam 1x", "CAM 1"}) {
        SCOPED_TRACE(wrong);
        RawSrt client;
        client.set(SRTO_STREAMID, std::string(wrong));
        EXPECT_FALSE(client.connect(5000));
    }
    RawSrt client;
    client.set(SRTO_STREAMID, std::string("cam 1"));
    EXPECT_TRUE(client.connect(5000));
}

TEST_F(SrtInputTest, ListenersFailedReceiveIsAnErrorAndASilentClientIsNot) {
    srt_input input(enabledUri(query("latency=20")));
    RawSrt client;
    ASSERT_TRUE(client.connect(5000));
    EXPECT_EQ(input.read(buffer, sizeof buffer), -2);
    EXPECT_EQ(input.read(buffer, sizeof buffer), -2);  // waited a second for data
    EXPECT_EQ(input.read(buffer, 10), -1);             // no message fits into so little
}

TEST_F(SrtInputTest, CallerReceivesWaitsAndSeesTheEnd) {
    RawSrt listener;
    ASSERT_TRUE(listener.listen(5000));
    srt_input input(
        enabledUri("srt://localhost:5000?mode=caller&latency=20&streamid=me&streamrate=8000000"));
    RawSrt sender = listener.accept();
    EXPECT_EQ(input.stream_rate, 8000000);
    EXPECT_EQ(sender.streamId(), "me");
    EXPECT_EQ(statsOf(input)["endpoint"], "localhost:5000");
    EXPECT_EQ(firstOf(sender, input, "hello"), "hello");
    EXPECT_TRUE(sim::waitUntil([&] { return input.read(buffer, sizeof buffer) == -2; }))
        << "silence is no end of stream";

    sender.close();
    testing::internal::CaptureStderr();
    EXPECT_EQ(readNext(input), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Connection was broken\n");
}

// What libsrt has settled on, seen from the far end and in the statistics.
TEST_F(SrtInputTest, OptionsReachLibsrtInBothModes) {
    const struct {
        const char *options;
        int latency;
    } rows[] = {{"latency=500", 500}, {"latency=0", 20}, {"latency=-5", 120}, {"fc=0", 120}};
    std::uint16_t port = 5100;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.options);
        RawSrt listener;
        listener.set(SRTO_LATENCY, 20);
        ASSERT_TRUE(listener.listen(++port));
        const std::string address = "srt://127.0.0.1:" + std::to_string(port) + "?mode=";
        srt_input caller(enabledUri(address + "caller&" + row.options));
        EXPECT_EQ(listener.accept().get(SRTO_PEERLATENCY), row.latency);
        listener.close();

        const std::string own = "srt://127.0.0.1:" + std::to_string(++port) + "?mode=";
        srt_input waiting(enabledUri(own + "listener&" + row.options));
        RawSrt client;
        client.set(SRTO_LATENCY, 20);
        ASSERT_TRUE(client.connect(port));
        EXPECT_EQ(client.get(SRTO_PEERLATENCY), row.latency);
    }
    RawSrt listener;
    ASSERT_TRUE(listener.listen(5000));
    srt_input caller(enabledUri("srt://127.0.0.1:5000?mode=caller&rcvbuf=1456000&fc=2000"));
    RawSrt sender = listener.accept();
    EXPECT_NEAR(statsOf(caller)["recv"]["byteAvailRcvBuf"].asInt(), 1456000, 30000);
    SRT_TRACEBSTATS far{};
    EXPECT_TRUE(sim::waitUntil([&] {
        return sender.send("x") && srt_bstats(sender.id(), &far, 0) == 0 &&
               far.pktFlowWindow <= 2000;
    })) << far.pktFlowWindow;
}

TEST_F(SrtInputTest, EncryptedStreamNeedsTheSamePassphrase) {
    RawSrt listener;
    listener.set(SRTO_PASSPHRASE, std::string("correct horse"));
    ASSERT_TRUE(listener.listen(5000));
    const std::string address =
        "srt://127.0.0.1:5000?mode=caller&latency=20&pbkeylen=32&passphrase=";
    EXPECT_EQ(tryToOpen<srt_input>(enabledUri(address + "wrong%2520horse")),
              "pbkeylen = 32\nsrt connect\nsrt_connect: Connection setup failure: connection "
              "rejected\nTHROWN");
    srt_input input(enabledUri(address + "correct%2520horse"));
    RawSrt sender = listener.accept();
    EXPECT_EQ(firstOf(sender, input, "secret"), "secret");
}

}  // namespace
