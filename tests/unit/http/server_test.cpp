#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "core/shared/descriptor.h"
#include "sim/sanitized.h"
#include "sim/wait_until.h"
#include "tests/unit/http/http_peer.h"

namespace {

using sim::waitUntil;

// Always 0 under the sanitizers, whose allocators keep what has been freed.
long residentBytes() {
    long resident = 0;
    std::ifstream("/proc/self/statm") >> resident >> resident;
    return sim::kSanitized ? 0 : resident * sysconf(_SC_PAGESIZE);
}

std::string times(int count, const std::string &text) {
    return count == 0 ? "" : text + times(count - 1, text);
}

class Server : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(get(server, "/echo").status(), 200) << "still serves"; }

    HttpServer server;
    RawClient client{server.port};
};

TEST_F(Server, KeepsTheConnectionAndTheOrderOfPipelinedRequests) {
    client.send("POST /echo HTTP/1.1\r\nContent-Length: 3\r\n\r\none"
                "GET /index.html HTTP/1.1\r\n\r\nPOST /echo HTTP/1.1\r\n\r\n"
                "HEAD /echo HTTP/1.1\r\nContent-Length: 4\r\n\r\nhead");
    const Reply first = client.reply();
    EXPECT_EQ(first.head, "HTTP/1.1 200 OK\r\nX-A: b\r\nContent-Length: 3          \r\n\r\n");
    EXPECT_EQ(first.body, "one");
    EXPECT_EQ(client.reply().body, "<html>hello</html>\n");
    EXPECT_EQ(client.reply().body, "");
    const Reply head = client.reply(false);
    EXPECT_EQ(head.head, "HTTP/1.1 200 OK\r\nX-A: b\r\nContent-Length: 4          \r\n\r\n");
    client.send("GET /big HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.reply().head, "HTTP/1.1 200 OK\r\nContent-Length: 400000     \r\n\r\n");
}

TEST_F(Server, RefusesPolitelyAlsoWhileTheClientStillSends) {
    const std::pair<std::string, int> rows[] = {
        {"POST /echo HTTP/1.1\r\nContent-Length: 4000000\r\n\r\n" + std::string(4000000, 'x'), 413},
        {"GET / HTTP/1.1\r\nX: " + std::string(500000, 'x') + "\r\n\r\n", 431},
        {"GET /" + std::string(65536, 'x') + " HTTP/1.1\r\n\r\n", 431},
        {"nonsense\r\n\r\n", 400},
        {std::string(100000, '\0'), 400},
    };
    for (const auto &[request, status] : rows) {
        SCOPED_TRACE(request.substr(0, 30));
        RawClient sender(server.port);
        EXPECT_TRUE(sender.send(request));
        const Reply reply = sender.reply();
        EXPECT_EQ(reply.status(), status);
        EXPECT_NE(reply.head.find("\r\nConnection: close\r\n"), std::string::npos);
        EXPECT_TRUE(sender.closedByServer());
    }
    EXPECT_EQ(server.calls, 0);
}

TEST_F(Server, ClosesWhenTheRequestOrTheHandlerWantsIt) {
    for (const char *request :
         {"GET /echo HTTP/1.1\r\nConnection: Close\r\n\r\n", "GET /echo HTTP/1.0\r\n\r\n",
          "GET /large.js HTTP/1.1\r\nConnection: close\r\n\r\nGET /echo HTTP/1.1\r\n\r\n"}) {
        SCOPED_TRACE(request);
        RawClient asking(server.port);
        asking.send(request);
        EXPECT_EQ(asking.reply().status(), 200);
        EXPECT_TRUE(asking.closedByServer());
    }
    client.send("GET /last HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.untilClosed(), "HTTP/1.0 200 OK\r\n\r\nlast");
    EXPECT_EQ(server.done, 1);
    client.finish();
    EXPECT_TRUE(waitUntil([&] { return server.open == 0; }));
}

TEST_F(Server, FinishesRepliesToAClientThatHasSentItsLast) {
    for (const auto &[uri, size] : {std::pair("/big", 400000U), std::pair("/large.js", 232803U)}) {
        RawClient half_closed(server.port);
        half_closed.send(std::string("GET ") + uri + " HTTP/1.1\r\n\r\nGET /cut HTTP/1.1\r\nHo");
        half_closed.finish();
        EXPECT_EQ(half_closed.reply().body.size(), size);
        EXPECT_TRUE(half_closed.closedByServer());
    }
    EXPECT_EQ(server.calls, 2);
}

TEST_F(Server, SurvivesClientsThatVanishAndHandlersThatThrow) {
    for (const char *request : {"", "GET", "GET / HTTP/1.1\r\nContent-Length: 9\r\n\r\nabc",
                                "GET /large.js HTTP/1.1\r\n\r\n", "GET /big HTTP/1.1\r\n\r\n",
                                "GET /silent HTTP/1.1\r\n\r\n"}) {
        RawClient resetting(server.port);
        resetting.send(request);
        resetting.reset();
        RawClient leaving(server.port);
        leaving.send(request);
        leaving.close();
    }
    client.send("GET /throw HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(client.closedByServer());
    EXPECT_TRUE(waitUntil([&] { return server.open == 0; }));
}

TEST_F(Server, HoldsLittleForAClientThatPipelinesAndNeverReads) {
    const long before = residentBytes();
    std::vector<RawClient> deaf;
    for (int i = 0; i < 8; ++i) {
        deaf.emplace_back(server.port).send(times(200, "GET /big HTTP/1.1\r\n\r\n"));
    }
    ASSERT_TRUE(waitUntil([&] { return server.calls >= 8; }));
    const int rounds = server.rounds;
    ASSERT_TRUE(waitUntil([&] { return server.rounds > rounds + 20; }));
    EXPECT_LT(server.calls, 8 * 30);  // the rest waits for the kernel's buffers to empty
    EXPECT_LT(residentBytes() - before, 32L * 1024 * 1024);
}

TEST_F(Server, BoundsTheMemoryOfBodiesThatNeverEnd) {
    std::vector<RawClient> senders;
    const std::string head = "POST /echo HTTP/1.1\r\nContent-Length: 3000000\r\n\r\n";
    for (int i = 0; i < 9; ++i) {
        senders.emplace_back(server.port).send(head + std::string(2900000, 'x'));
    }
    EXPECT_EQ(senders.front().reply().status(), 503);
    EXPECT_EQ(get(server, "/echo").status(), 200);
    senders.back().send(std::string(100000, 'x'));
    EXPECT_EQ(senders.back().reply().body.size(), 3000000U);
}

TEST_F(Server, BoundsTheMemoryOfRepliesThatNobodyReads) {
    const long before = residentBytes();
    std::vector<RawClient> deaf;
    for (int i = 1; i <= 10; ++i) {
        deaf.emplace_back(server.port).send("GET /huge HTTP/1.1\r\n\r\n");
        ASSERT_TRUE(waitUntil([&] { return server.calls == i; }));
    }
    ASSERT_TRUE(waitUntil([&] { return server.open == 2; }));  // `client` and the last are left
    EXPECT_LT(residentBytes() - before, 96L * 1024 * 1024);    // two replies and their making
    EXPECT_LT(deaf.front().untilClosed().size(), kHugeReply);
    EXPECT_EQ(get(server, "/echo").status(), 200);
    EXPECT_EQ(deaf.back().reply().body.size(), kHugeReply);
}

TEST_F(Server, ReplacesTheClientThatHasBeenWithoutARequestLongest) {
    RawClient busy(server.port);  // its replies fill the kernel's buffers, and wait
    busy.send(times(50, "GET /big HTTP/1.1\r\n\r\n"));
    std::vector<RawClient> idle;
    for (int i = 0; i < 300; ++i) {
        idle.emplace_back(server.port);
        if (i % 50 == 0) {  // `client` is the oldest but never the idlest
            client.send("GET /echo HTTP/1.1\r\n\r\n");
            ASSERT_EQ(client.reply().status(), 200);
        }
    }
    ASSERT_TRUE(waitUntil([&] { return server.open == 256; }));
    EXPECT_TRUE(idle.front().closedByServer());
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(busy.reply().body.size(), 400000U);
    }
    for (RawClient *kept : {&idle.back(), &client}) {
        kept->send("GET /echo HTTP/1.1\r\n\r\n");
        EXPECT_EQ(kept->reply().status(), 200);
    }
}

// No fixture: where no descriptor is left, UBSan cannot tell its vtable from garbage.
TEST(Accepting, WaitsWithoutSpinningWhileDescriptorsAreUsedUp) {
    const HttpServer server;
    RawClient client(server.port);
    ASSERT_TRUE(waitUntil([&] { return server.open == 1; }));
    const rlimit limit = {64, 64};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<Descriptor> fillers;
    do {
        fillers.emplace_back(dup(0));
    } while (fillers.back().isOpen());
    fillers.pop_back();
    fillers.pop_back();
    RawClient waiting(server.port);  // takes the last one, and stays in the backlog
    const int rounds = server.rounds;
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitUntil(
        [&] { return std::chrono::steady_clock::now() > start + std::chrono::milliseconds(300); }));
    EXPECT_EQ(server.open, 1U);
    EXPECT_LT(server.rounds - rounds, 60);
    fillers.clear();
    waiting.send("GET /echo HTTP/1.1\r\n\r\n");
    EXPECT_EQ(waiting.reply().status(), 200);
}

// A restart or reboot that a client has been promised comes whatever becomes of the client.
TEST(Afterwards, IsDoneAlsoWhereTheReplyIsLost) {
    int done = 0;
    std::optional<http::Server> server([&](const http::Request &) {
        http::Reply reply = http::makeReply(200, "", std::string(kHugeReply, 'h'));
        reply.afterwards = [&] { ++done; };
        return reply;
    });
    ASSERT_EQ(server->listen(0), 0);
    RawClient crowded_out(server->port());
    RawClient unread(server->port());
    for (const RawClient *client : {&crowded_out, &unread}) {  // two are more than may be held
        EXPECT_EQ(done, 0);
        client->send("GET / HTTP/1.1\r\n\r\n");
        server->poll(1000);
        server->poll(1000);
    }
    EXPECT_EQ(done, 1);
    server.reset();
    EXPECT_EQ(done, 2);
}

TEST(Listening, SleepsWithoutWorkAndTakesOnlyAPortThatItCanBind) {
    const auto start = std::chrono::steady_clock::now();
    const HttpServer owner;
    http::Server server([](const http::Request &) { return std::nullopt; });
    EXPECT_EQ(server.listen(owner.port), EADDRINUSE);
    EXPECT_FALSE(server.isListening());
    server.poll(60);
    EXPECT_EQ(server.listen(0), 0);
    server.poll(60);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(120));
}

}  // namespace
