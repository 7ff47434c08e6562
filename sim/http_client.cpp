#include "sim/http_client.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "sim/loopback.h"

namespace sim {

int Reply::status() const {
    return head.size() < 12 ? 0 : std::stoi(head.substr(9, 3));
}

RawClient::RawClient(std::uint16_t port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connectTo(fd, port) != 0) {
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

std::string requestText(const std::string &path, const std::string &body,
                        const std::string &method) {
    return method + " " + path +
           " HTTP/1.1\r\nHost: unit\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

Reply ask(const std::string &path, const std::string &body, const std::string &method) {
    RawClient client(kApiPort);
    client.send(requestText(path, body, method));
    return client.reply();
}

bool apiListens(std::chrono::milliseconds limit) {
    const auto listens = [] {
        try {
            const RawClient client(kApiPort);
            return true;
        } catch (const std::runtime_error &) {
            return false;
        }
    };
    return waitUntil(listens, limit);
}

}  // namespace sim
