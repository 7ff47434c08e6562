#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include <arpa/inet.h>

#include "api/dispatch.h"
#include "net/mongoose.h"
#include "tests/unit/net/http_peer.h"

namespace {

// A listener whose connections lead to no ApiHandler.
class Orphan : public testing::Test {
protected:
    Orphan() {
        std::filesystem::current_path("/tmp");
        mg_mgr_init(&manager);
        const auto *listener =
            mg_http_listen(&manager, "http://127.0.0.1:0", apiEventHandler, nullptr);
        port = ntohs(listener->loc.port);
        thread = std::thread([this] {
            while (!stop) {
                mg_mgr_poll(&manager, 20);
            }
            mg_mgr_free(&manager);
        });
    }
    ~Orphan() override {
        stop = true;
        thread.join();
    }
    Reply get(const std::string &path) const {
        RawClient client(port);
        client.send("GET " + path + " HTTP/1.1\r\n\r\n");
        return client.reply();
    }

    mg_mgr manager;
    unsigned short port = 0;
    std::atomic<bool> stop{false};
    std::thread thread;
};

TEST_F(Orphan, RoutesThatNeedTheHandlerAnswerInTheirOwnWay) {
    for (const char *path : {"/api/cfg/get", "/api/cfg/set", "/api/source/set"}) {
        const Reply reply = get(path);
        EXPECT_EQ(reply.head,
                  "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 6          \r\n\r\n");
        EXPECT_EQ(reply.body, "Error\n");
    }
    EXPECT_EQ(get("/api/stats").body, "{}\n");
    EXPECT_EQ(get("/api/caps").body, "{}\n");
    EXPECT_EQ(get("/index.html").status(), 404) << "the disk's web root, which is not there";
}

}  // namespace
