#include "endpoints/srt_input.h"

#include "tests/unit/srt_endpoint_test.h"

namespace {

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
    const std::string opens = kListenSteps + "OPEN";
    const std::string key = kListener + "&pbkeylen=";
    const std::string phrase = kListener + "&passphrase=";
    const auto refused = [](const char *length) {
        return "tidewell: Invalid passphrase length: " + std::string(length) +
               ", should be 10-80\nTHROWN";
    };
    const std::tuple<const char *, std::string, std::string> rows[] = {
        {"no port", "srt://127.0.0.1?mode=listener", "THROWN"},
        {"port past 65535", "srt://127.0.0.1:65536?mode=listener", "THROWN"},
        {"port wraps to a good one", "srt://127.0.0.1:70536?mode=listener", "THROWN"},
        {"no mode", "srt://127.0.0.1:5000", "srt mode not set\nTHROWN"},
        {"mode in capitals", "srt://127.0.0.1:5000?mode=Caller", "srt mode not set\nTHROWN"},
        {"listener on a name", "srt://localhost:5000?mode=listener", "srt bind address\nTHROWN"},
        {"listener on a foreign address", "srt://192.0.2.1:5000?mode=listener",
         "srt bind address\nsrt setsockflag\nsrt bind\n"
         "srt_bind: Connection setup failure: unable to create/configure SRT socket\nTHROWN"},
        {"pbkeylen 0", key + "0", "pbkeylen = 0\n" + opens},
        {"pbkeylen 24", key + "24", "pbkeylen = 24\n" + opens},
        {"pbkeylen 8", key + "8", "tidewell: Invalid pbkeylen 8\nTHROWN"},
        {"pbkeylen text", key + "x", "pbkeylen = 0\n" + opens},
        {"passphrase of 9", phrase + "123456789", refused("9")},
        {"passphrase of 10", phrase + "1234567890", opens},
        {"passphrase of 80", phrase + std::string(80, 'p'), opens},
        {"passphrase of 81", phrase + std::string(81, 'p'), refused("81")},
        {"passphrase counts after its decoding", phrase + "12345678%2525", refused("9")},
        {"passphrase ends at a NUL", phrase + "123456789%25002", refused("9")},
        {"passphrase complains before pbkeylen", key + "8&passphrase=1", refused("1")},
        {"nobody calls back", "srt://127.0.0.1:5001?mode=caller",
         "srt connect\nsrt_connect: Connection setup failure: connection timed out\nTHROWN"},
        {"name that does not resolve", "srt://no.such.name.invalid:5001?mode=caller",
         "getaddrinfo: Temporary failure in name resolution\nTHROWN"},
    };
    for (const auto &[name, uri, printed] : rows) {
        EXPECT_EQ(tryToOpen<srt_input>(enabledUri(uri)), printed) << name;
    }
    StreamUri disabled = enabledUri(kListener);
    disabled.enable = false;
    EXPECT_EQ(tryToOpen<srt_input>(disabled), "THROWN");
}

TEST_F(SrtInputTest, ListenerGoesThroughItsStatesOneStepACall) {
    srt_input input(enabledUri(kListener + "&latency=20"));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(input.read(buffer, sizeof buffer), -2); }),
              "No client, waiting\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
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
        EXPECT_EQ(line.substr(0, 9), "msRcvBuf[");
        ASSERT_TRUE(client.send("first") && client.send("second one"));
        EXPECT_EQ(readNext(input), 5);
        EXPECT_EQ(readNext(input), 10);
        EXPECT_EQ(std::string(buffer, 10), "second one");
        EXPECT_EQ(statsOf(input)["recv"]["packets"], 2);
        const std::string peer = statsOf(input)["recv"]["endpoint"].asString();
        EXPECT_EQ(peer.substr(0, 10), "127.0.0.1:");

        client.close();
        EXPECT_TRUE(sim::waitUntil([&] {
            EXPECT_EQ(input.read(buffer, sizeof buffer), -2);
            return !input.status_line(&line);
        }));
        std::string printed = testing::internal::GetCapturedStdout();
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
    srt_input input(enabledUri(kListener + "&streamid=cam%25201"));
    for (const std::string_view id : {"", "cam 1x", "CAM 1", "cam 1"}) {
        RawSrt client;
        client.set(SRTO_STREAMID, std::string(id));
        EXPECT_EQ(client.connect(5000), id == "cam 1") << id;
    }
    srt_input open_to_all(enabledUri("srt://127.0.0.1:5001?mode=listener"));
    RawSrt client;
    client.set(SRTO_STREAMID, std::string("any"));
    EXPECT_TRUE(client.connect(5001));
    EXPECT_EQ(open_to_all.close(), 0);
    EXPECT_EQ(printedBy([&] { open_to_all.read(buffer, sizeof buffer); }).substr(0, 7), "status ");
}

TEST_F(SrtInputTest, ListenersFailedReceiveIsAnErrorAndASilentClientIsNot) {
    srt_input input(enabledUri(kListener + "&latency=20"));
    RawSrt client;
    ASSERT_TRUE(client.connect(5000));
    std::string line;
    ASSERT_TRUE(sim::waitUntil(
        [&] { return input.read(buffer, sizeof buffer) == -2 && input.status_line(&line) == 1; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(input.read(buffer, sizeof buffer), -2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    EXPECT_EQ(input.read(buffer, 10), -1);  // no message fits into so little
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
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(readNext(input), 0); }), "Connection was broken\n");
}

TEST_F(SrtInputTest, OptionsReachTheSocket) {
    const std::tuple<const char *, SRT_SOCKOPT, int> rows[] = {
        {"&latency=500", SRTO_RCVLATENCY, 500},
        {"&latency=500", SRTO_PEERLATENCY, 500},
        {"&latency=0", SRTO_RCVLATENCY, 0},
        {"&latency=-5", SRTO_RCVLATENCY, 120},
        {"&pbkeylen=32&passphrase=correct-horse", SRTO_PBKEYLEN, 32},
        {"&fc=2000", SRTO_FC, 2000},
        {"&fc=0", SRTO_FC, 25600},
        {"&rcvbuf=1472000", SRTO_RCVBUF, 1472000},
        {"&rcvbuf=0", SRTO_RCVBUF, RawSrt().get(SRTO_RCVBUF)},
        {"", SRTO_RCVSYN, 0},
        {"", SRTO_REUSEADDR, 1},
        {"", SRTO_SENDER, 0},
    };
    for (const auto &[options, option, value] : rows) {
        EXPECT_EQ(optionOf<srt_input>(kListener + options, option), value) << options << option;
    }
    RawSrt listener;
    ASSERT_TRUE(listener.listen(5001));
    const std::string caller = "srt://127.0.0.1:5001?mode=caller&latency=300";
    EXPECT_EQ(optionOf<srt_input>(caller, SRTO_RCVTIMEO), 1000);
    EXPECT_EQ(listener.accept().get(SRTO_PEERLATENCY), 300);
}

TEST_F(SrtInputTest, EncryptedStreamNeedsTheSamePassphrase) {
    RawSrt listener;
    listener.set(SRTO_PASSPHRASE, std::string("correct horse"));
    ASSERT_TRUE(listener.listen(5000));
    const std::string address = kCaller + "&passphrase=";
    EXPECT_EQ(tryToOpen<srt_input>(enabledUri(address + "wrong%2520horse")),
              "srt connect\nsrt_connect: Connection setup failure: connection rejected\nTHROWN");
    srt_input input(enabledUri(address + "correct%2520horse"));
    RawSrt sender = listener.accept();
    EXPECT_EQ(firstOf(sender, input, "secret"), "secret");
}

}  // namespace
