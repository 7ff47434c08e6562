#include <gtest/gtest.h>

#include <filesystem>

#include <arpa/inet.h>

#include "api/dispatch.h"
#include "net/mongoose.h"
#include "tests/unit/net/http_peer.h"

namespace {

// Asks a listener whose connections lead to no ApiHandler.
Reply askOrphan(const std::string &path) {
    mg_mgr manager;
    mg_mgr_init(&manager);
    const auto *listener = mg_http_listen(&manager, "http://127.0.0.1:0", apiEventHandler, nullptr);
    RawClient client(ntohs(listener->loc.port));
    client.send("GET " + path + " HTTP/1.1\r\nConnection: close\r\n\r\n");
    client.finish();
    for (int round = 0; round < 20; ++round) {
        mg_mgr_poll(&manager, 10);
    }
    mg_mgr_free(&manager);
    return client.reply();
}

TEST(Orphan, RoutesThatNeedTheHandlerAnswerInTheirOwnWay) {
    std::filesystem::current_path("/tmp");
    for (const char *path : {"/api/cfg/get", "/api/cfg/set", "/api/source/set"}) {
        const Reply reply = askOrphan(path);
        EXPECT_EQ(reply.head + reply.body, "HTTP/1.1 500 Internal Server Error\r\n"
                                           "Content-Length: 6          \r\n\r\nError\n");
    }
    EXPECT_EQ(askOrphan("/api/stats").body, "{}\n");
    EXPECT_EQ(askOrphan("/api/caps").body, "{}\n");
    EXPECT_EQ(askOrphan("/index.html").status(), 404) << "the disk's web root, which is not there";
}

}  // namespace
