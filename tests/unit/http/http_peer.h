// The server of the layer's tests, which polls in a thread of its own.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "http/server.h"
#include "http/static_files.h"
#include "sim/http_client.h"

using sim::RawClient;
using sim::Reply;

inline constexpr std::size_t kHugeReply = std::size_t{18} << 20;

// The packed tree that the tests serve: a page, a directory with an entry of its own, one
// without, and a file that takes many steps to send.
http::StaticFiles packedFiles();

// A listener on a free port. Its routes: /echo returns the body, /big 400,000 bytes, /huge
// kHugeReply bytes, /silent nothing; /last closes and then counts in `done`; /throw throws;
// anything else is one of `files`.
class HttpServer {
public:
    explicit HttpServer(http::StaticFiles served = packedFiles());
    ~HttpServer();

    std::atomic<int> rounds = 0;        // of poll()
    std::atomic<int> calls = 0;         // requests that reached the handler
    std::atomic<int> done = 0;          // what was to be done after replies
    std::atomic<std::size_t> open = 0;  // clients
    std::uint16_t port = 0;             // fixed at construction

private:
    std::optional<http::Reply> answer(const http::Request &request);

    const http::StaticFiles files;
    http::Server server;  // the thread's, once that runs
    std::atomic<bool> stop = false;
    std::thread thread;
};

// One request on a connection of its own.
Reply ask(const HttpServer &server, const std::string &request);
Reply get(const HttpServer &server, const std::string &uri);
