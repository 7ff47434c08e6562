// The server of the layer's tests, which polls in a thread of its own.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "net/mongoose.h"
#include "sim/http_client.h"

using sim::RawClient;
using sim::Reply;

inline constexpr std::size_t kHugeReply = std::size_t{18} << 20;

// A listener on a free port of 127.0.0.1. Its routes: /echo returns the body, /big 400,000
// bytes, /huge kHugeReply bytes, /silent nothing; /thumb sends text without mg_http_reply and
// drains; /throw throws, /raw sends `raw_reply` and drains; anything else is served from `root`.
class HttpServer {
public:
    explicit HttpServer(std::string root = "/web_root", mg_fs *files = &mg_fs_packed);
    ~HttpServer();

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port); }

    std::atomic<int> rounds = 0;  // of mg_mgr_poll, counted by the listener's MG_EV_POLL
    std::atomic<int> calls = 0;   // requests that reached the handler
    std::atomic<int> open = 0;    // connections, the listener too
    std::string raw_reply;        // set before the first request
    unsigned short port = 0;      // fixed at construction

private:
    static void onEvent(mg_connection *c, int event, void *data);
    void onRequest(mg_connection *c, mg_http_message *request);

    const std::string root_dir;  // fixed at construction
    mg_fs *const root_files;     // fixed at construction
    mg_mgr manager;              // the thread's, once that runs
    std::atomic<bool> stop = false;
    std::thread thread;
};

// One request on a connection of its own.
Reply ask(const HttpServer &server, const std::string &request);
Reply get(const HttpServer &server, const std::string &uri);
