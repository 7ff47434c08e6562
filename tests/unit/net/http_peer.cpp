#include "tests/unit/net/http_peer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

HttpServer::HttpServer(std::string root, mg_fs *files)
    : root_dir(std::move(root)), root_files(files) {
    mg_log_level = MG_LL_NONE;
    mg_mgr_init(&manager);
    mg_connection *listener = mg_http_listen(&manager, "http://127.0.0.1:0", onEvent, this);
    if (listener == nullptr) {
        throw std::runtime_error("no port to listen on");
    }
    port = ntohs(listener->loc.port);
    thread = std::thread([this] {
        while (!stop) {
            mg_mgr_poll(&manager, 20);
        }
        mg_mgr_free(&manager);
    });
}

HttpServer::~HttpServer() {
    stop = true;
    thread.join();
}

void HttpServer::onEvent(mg_connection *c, int event, void *data) {
    auto *self = static_cast<HttpServer *>(c->fn_data);
    if (event == MG_EV_OPEN) {
        ++self->open;
    } else if (event == MG_EV_CLOSE) {
        --self->open;
    } else if (event == MG_EV_POLL && c->is_listening) {
        ++self->rounds;
    } else if (event == MG_EV_HTTP_MSG) {
        ++self->calls;
        self->onRequest(c, static_cast<mg_http_message *>(data));
    }
}

void HttpServer::onRequest(mg_connection *c, mg_http_message *request) {
    const auto is = [&](const char *route) {
        return mg_match(request->uri, mg_str(route), nullptr);
    };
    if (is("/echo")) {
        mg_http_reply(c, 200, "X-A: b\r\n", "%.*s", static_cast<int>(request->body.len),
                      request->body.buf);
    } else if (is("/big")) {
        mg_http_reply(c, 200, nullptr, "%s", std::string(400000, 'b').c_str());
    } else if (is("/huge")) {
        mg_http_reply(c, 200, nullptr, "%s", std::string(kHugeReply, 'h').c_str());
    } else if (is("/thumb")) {
        mg_printf(c, "HTTP/1.0 200 OK\r\nContent-Length: %lu\r\n\r\n", 4UL);
        mg_send(c, "JPEG\r\n", 6);
        c->is_draining = 1;
    } else if (is("/raw")) {
        mg_send(c, raw_reply.data(), raw_reply.size());
        c->is_draining = 1;
    } else if (is("/throw")) {
        throw std::runtime_error("a route failed");
    } else if (is("/calls")) {
        mg_http_reply(c, 200, nullptr, "%d", calls.load());
    } else if (!is("/silent")) {
        const mg_http_serve_opts options = {root_dir.c_str(), root_files};
        mg_http_serve_dir(c, request, &options);
    }
}

int Reply::status() const {
    return head.size() < 12 ? 0 : std::stoi(head.substr(9, 3));
}

RawClient::RawClient(unsigned short port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        throw std::runtime_error("cannot connect");
    }
}

RawClient::RawClient(RawClient &&other) noexcept
    : fd(std::exchange(other.fd, -1)), received(std::move(other.received)) {}

bool RawClient::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

bool RawClient::receive() {
    char bytes[65536];
    const ssize_t count = recv(fd, bytes, sizeof(bytes), 0);
    timed_out = count < 0 && errno == EAGAIN;
    received.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    return count > 0;
}

Reply RawClient::reply(bool has_body) {
    while (received.find("\r\n\r\n") == std::string::npos && receive()) {
    }
    const size_t head_end = received.find("\r\n\r\n");
    if (head_end == std::string::npos) {
        return {};
    }
    Reply reply{received.substr(0, head_end + 4), ""};
    const size_t field = reply.head.find("Content-Length: ");
    const size_t length =
        has_body && field != std::string::npos ? std::stoul(reply.head.substr(field + 16)) : 0;
    while (received.size() < reply.head.size() + length && receive()) {
    }
    reply.body = received.substr(reply.head.size(), length);
    received.erase(0, reply.head.size() + length);
    return reply;
}

std::string RawClient::untilClosed() {
    while (receive()) {
    }
    return std::exchange(received, {});
}

void RawClient::finish() const {
    shutdown(fd, SHUT_WR);
}

void RawClient::reset() {
    const linger at_once{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close();
}

void RawClient::close() {
    if (fd >= 0) {
        ::close(std::exchange(fd, -1));
    }
}

Reply ask(const HttpServer &server, const std::string &request) {
    RawClient client(server.port);
    client.send(request);
    return client.reply(request.rfind("HEAD", 0) != 0);
}

Reply get(const HttpServer &server, const std::string &uri, const std::string &headers) {
    return ask(server, "GET " + uri + " HTTP/1.1\r\nHost: unit\r\n" + headers + "\r\n");
}
