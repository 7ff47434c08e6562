#include "tests/unit/http/http_peer.h"

#include <stdexcept>
#include <utility>

namespace {

const struct {
    std::string name, content;
    time_t mtime;
} kTable[] = {
    {"/web_root/index.html", "<html>hello</html>\n", 1700000000},
    {"/web_root/static", "", 1743698221},
    {"/web_root/static/a.css", "a { }", 1700000000},
    {"/web_root/static/font.woff2", "font", 1700000000},
    {"/web_root/norec/x.txt", "x", 1700000001},
    {"/web_root/norec/sub/y<&.txt", "y", 1700000001},
    {"/web_root/large.js", std::string(100000, 'l') + std::string(132803, 'L'), 1700000000},
};

const char *contentOf(const char *path, std::size_t *size, time_t *mtime) {
    for (const auto &entry : kTable) {
        if (entry.name == path) {
            if (size != nullptr) {
                *size = entry.content.size();
                *mtime = entry.mtime;
            }
            return entry.content.c_str();
        }
    }
    return nullptr;
}

const char *nameOf(std::size_t number) {
    return number < std::size(kTable) ? kTable[number].name.c_str() : nullptr;
}

}  // namespace

http::StaticFiles packedFiles() {
    return {std::make_unique<http::PackedTree>(http::PackedTable{contentOf, nameOf}), "/web_root"};
}

HttpServer::HttpServer(http::StaticFiles served)
    : files(std::move(served)),
      server([this](const http::Request &request) { return answer(request); }) {
    if (server.listen(0) != 0) {
        throw std::runtime_error("no port to listen on");
    }
    port = server.port();
    thread = std::thread([this] {
        while (!stop) {
            server.poll(20);
            open = server.clients();
            ++rounds;
        }
    });
}

HttpServer::~HttpServer() {
    stop = true;
    thread.join();
}

std::optional<http::Reply> HttpServer::answer(const http::Request &request) {
    ++calls;
    if (request.path == "/echo") {
        return http::makeReply(200, "X-A: b\r\n", std::string(request.body));
    }
    if (request.path == "/big") {
        return http::makeReply(200, "", std::string(400000, 'b'));
    }
    if (request.path == "/huge") {
        return http::makeReply(200, "", std::string(kHugeReply, 'h'));
    }
    if (request.path == "/last") {
        http::Reply reply{.head = "HTTP/1.0 200 OK\r\n\r\n", .body = "last"};
        reply.close = true;
        reply.afterwards = [this] { ++done; };
        return reply;
    }
    if (request.path == "/throw") {
        throw std::runtime_error("a route failed");
    }
    if (request.path == "/silent") {
        return std::nullopt;
    }
    return files.answer(request);
}

Reply ask(const HttpServer &server, const std::string &request) {
    RawClient client(server.port);
    client.send(request);
    return client.reply(request.rfind("HEAD", 0) != 0);
}

Reply get(const HttpServer &server, const std::string &uri) {
    return ask(server, "GET " + uri + " HTTP/1.1\r\nHost: unit\r\n\r\n");
}
