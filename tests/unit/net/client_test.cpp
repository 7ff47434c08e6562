#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/net/http_peer.h"

namespace {

// Accepts one client, reads its request, hands the socket to `act` and closes it.
class OneShotServer {
public:
    explicit OneShotServer(std::function<void(int)> action)
        : act(std::move(action)), listener(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        bind(listener, reinterpret_cast<sockaddr *>(&address), length);
        listen(listener, 1);
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length);
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/image?a=b";
        thread = std::thread([this] {
            const int client = accept(listener, nullptr, nullptr);
            char bytes[1000];
            request.assign(bytes, static_cast<size_t>(recv(client, bytes, sizeof(bytes), 0)));
            act(client);
            close(client);
        });
    }
    ~OneShotServer() {
        thread.join();
        close(listener);
    }

    std::string url;
    std::string request;  // complete once the client has seen the end

private:
    std::function<void(int)> act;
    int listener;
    std::thread thread;
};

// What a fetch was told, as text: "connect", "reply:BODY", "error", "close".
struct Fetch {
    std::string url;
    std::string events = "";
    bool done = false;

    static void onEvent(mg_connection *c, int event, void *data) {
        auto &self = *static_cast<Fetch *>(c->fn_data);
        if (event == MG_EV_CONNECT) {
            self.events += "connect ";
            mg_printf(c, "GET %s HTTP/1.0\r\nHost: %.*s\r\n\r\n", mg_url_uri(self.url.c_str()), 9,
                      "127.0.0.1");
        } else if (event == MG_EV_HTTP_MSG) {
            const mg_str body = static_cast<mg_http_message *>(data)->body;
            self.events += "reply:" + std::string(body.buf, body.len) + " ";
            c->is_draining = 1;
        } else if (event == MG_EV_ERROR) {
            self.events += "error ";
        } else if (event == MG_EV_CLOSE) {
            self.events += "close";
            self.done = true;
        }
    }

    void run(int limit_ms = 5000) {
        mg_mgr manager;
        mg_mgr_init(&manager);
        mg_http_connect(&manager, url.c_str(), onEvent, this);
        const uint64_t end = mg_millis() + static_cast<uint64_t>(limit_ms);
        while (!done && mg_millis() < end) {
            mg_mgr_poll(&manager, 50);
        }
        mg_mgr_free(&manager);
    }
};

TEST(Client, TellsAWholeReplyFromABrokenOne) {
    mg_log_level = MG_LL_NONE;
    const struct {
        const char *name, *reply;
        bool reset;
        const char *events;
    } rows[] = {
        {"counted", "HTTP/1.0 200 OK\r\nContent-Length: 4\r\n\r\nJPEG", false, "reply:JPEG close"},
        {"status is not looked at", "HTTP/1.1 404 No\r\nContent-Length: 1\r\n\r\nx", false,
         "reply:x close"},
        {"chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n\r\n",
         false, "reply:ab close"},
        {"until the end", "HTTP/1.0 200 OK\r\n\r\nJPEG", false, "reply:JPEG close"},
        {"until a reset", "HTTP/1.0 200 OK\r\n\r\nJPEG", true, "error close"},
        {"cut body", "HTTP/1.0 200 OK\r\nContent-Length: 50\r\n\r\nJPEG", false, "error close"},
        {"cut head", "HTTP/1.0 200 OK\r\nContent-Le", false, "error close"},
        {"cut chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n", false,
         "error close"},
        {"nothing", "", false, "error close"},
        {"garbage", "SSH-2.0-x\r\n\r\n", false, "error close"},
        {"too much", "HTTP/1.0 200 OK\r\nContent-Length: 3145729\r\n\r\n", false, "error close"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        OneShotServer server([&](int client) {
            send(client, row.reply, strlen(row.reply), MSG_NOSIGNAL);
            const linger at_once{row.reset ? 1 : 0, 0};
            setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
        });
        Fetch fetch{server.url};
        fetch.run();
        EXPECT_EQ(fetch.events, std::string("connect ") + row.events);
        EXPECT_EQ(server.request, "GET /image?a=b HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
    }
}

TEST(Client, FailsWhereNobodyListens) {
    mg_log_level = MG_LL_NONE;
    for (const char *url : {"http://127.0.0.1:1/", "http://host.invalid/"}) {
        Fetch fetch{url};
        fetch.run();
        EXPECT_EQ(fetch.events, "error close") << url;
    }
}

TEST(Client, RunsToItsEndInsideAHandlerOfAnotherManager) {
    const HttpServer images;
    static std::string image_url;
    image_url = images.url() + "/calls";
    mg_mgr manager;
    mg_mgr_init(&manager);
    const mg_connection *listener = mg_http_listen(
        &manager, "http://127.0.0.1:0",
        [](mg_connection *c, int event, void *) {
            if (event == MG_EV_HTTP_MSG) {
                Fetch fetch{image_url};
                fetch.run();
                mg_http_reply(c, 200, nullptr, "%s", fetch.events.c_str());
            }
        },
        nullptr);
    RawClient client(ntohs(listener->loc.port));
    client.send("GET / HTTP/1.1\r\n\r\nGET / HTTP/1.1\r\n\r\n");
    for (int i = 0; i < 100 && images.calls < 2; ++i) {
        mg_mgr_poll(&manager, 50);
    }
    EXPECT_EQ(client.reply().body, "connect reply:1 close");
    EXPECT_EQ(client.reply().body, "connect reply:2 close");
    mg_mgr_free(&manager);
}

TEST(Manager, SleepsTheWholeTimeWithoutWork) {
    mg_mgr manager;
    mg_mgr_init(&manager);
    const uint64_t start = mg_millis();
    mg_mgr_poll(&manager, 60);
    EXPECT_GE(mg_millis() - start, 59U);
    mg_http_listen(&manager, "http://127.0.0.1:0", nullptr, nullptr);
    mg_mgr_poll(&manager, 60);
    EXPECT_GE(mg_millis() - start, 119U);
    mg_mgr_free(&manager);
}

}  // namespace
