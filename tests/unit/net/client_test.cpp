#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/unit/net/http_peer.h"

namespace {

// What a fetch was told, as text: "connect", "reply:BODY", "error", "close".
class Fetch {
public:
    explicit Fetch(std::string asked) : url(std::move(asked)) {
        mg_mgr manager;
        mg_mgr_init(&manager);
        mg_http_connect(&manager, url.c_str(), onEvent, this);
        for (int round = 0; round < 100 && !events.ends_with("close"); ++round) {
            mg_mgr_poll(&manager, 50);
        }
        mg_mgr_free(&manager);
    }
    std::string events;

private:
    static void onEvent(mg_connection *c, int event, void *data) {
        auto &self = *static_cast<Fetch *>(c->fn_data);
        if (event == MG_EV_CONNECT) {
            self.events += "connect ";
            mg_printf(c, "GET %s HTTP/1.0\r\n\r\n", mg_url_uri(self.url.c_str()));
        } else if (event == MG_EV_HTTP_MSG) {
            const mg_str body = static_cast<mg_http_message *>(data)->body;
            self.events += "reply:" + std::string(body.buf, body.len) + " ";
            c->is_draining = 1;
        } else if (event == MG_EV_ERROR) {
            self.events += "error ";
        } else if (event == MG_EV_CLOSE) {
            self.events += "close";
        }
    }
    const std::string url;
};

TEST(Client, TellsAWholeReplyFromABrokenOne) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n";
    const std::pair<std::string, const char *> rows[] = {
        {ok + "Content-Length: 4\r\n\r\nJPEG", "reply:JPEG close"},
        {"HTTP/1.0 404 No\r\nContent-Length: 1\r\n\r\nx", "reply:x close"},
        {chunked + "0\r\n\r\n", "reply:ab close"},
        {"HTTP/1.0 200 OK\r\n\r\nJPEG", "reply:JPEG close"},
        {"HTTP/1.0 200\nContent-Length: 4\n\nJPEG", "reply:JPEG close"},
        {ok + "Content-Length: 50\r\n\r\nJPEG", "error close"},
        {ok + "Content-Le", "error close"},
        {chunked, "error close"},
        {"", "error close"},
        {"SSH-2.0-x\r\n\r\n", "error close"},
        {ok + "Content-Length: 3145729\r\n\r\n", "error close"},
    };
    for (const auto &[reply, events] : rows) {
        SCOPED_TRACE(reply);
        HttpServer server;
        server.raw_reply = reply;
        EXPECT_EQ(Fetch(server.url() + "/raw").events, std::string("connect ") + events);
    }
}

TEST(Client, FailsWhereNobodyListens) {
    mg_log_level = MG_LL_NONE;
    for (const char *url : {"http://127.0.0.1:1/", "http://host.invalid/"}) {
        EXPECT_EQ(Fetch(url).events, "error close") << url;
    }
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
