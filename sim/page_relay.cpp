#include "sim/page_relay.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <string>

#include "sim/loopback.h"

namespace sim {
namespace {

constexpr std::uint16_t kApiPort = 8000;
constexpr std::uint16_t kPortsTried = 100;
constexpr int kStopCheckMs = 100;
constexpr int kBacklog = 64;

bool sendAll(int socket, const char *bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t sent = send(socket, bytes, count, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes += sent;
        count -= static_cast<std::size_t>(sent);
    }
    return true;
}

// Moves what has come; false once this direction is over, which the other end is told.
bool passOn(int from, int to) {
    std::array<char, 65536> bytes;
    const ssize_t count = recv(from, bytes.data(), bytes.size(), 0);
    if (count > 0 && sendAll(to, bytes.data(), static_cast<std::size_t>(count))) {
        return true;
    }
    shutdown(to, SHUT_WR);
    return false;
}

}  // namespace

PageRelay::PageRelay() {
    for (std::uint16_t port = kApiPort; port < kApiPort + kPortsTried; ++port) {
        try {
            listener = listenAt(port, kBacklog);
            taken_port = port;
            return;
        } catch (const std::system_error &) {  // taken, the next one may be free
        }
    }
    throwErrno("listen at a port from 8000 on");
}

PageRelay::~PageRelay() {
    stop = true;
    if (thread.joinable()) {
        thread.join();
    }
}

void PageRelay::start() {
    thread = std::thread([this] { run(); });
}

void PageRelay::run() {
    pollfd waiting{listener.get(), POLLIN, 0};
    while (!stop) {
        if (poll(&waiting, 1, kStopCheckMs) > 0) {
            FileDescriptor client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            Connection &connection = connections.emplace_back();
            connection.thread =
                std::thread([this, &connection, client = std::move(client)]() mutable {
                    carry(std::move(client));
                    connection.done = true;
                });
        }
        joinConnections(false);
    }
    joinConnections(true);
}

void PageRelay::joinConnections(bool all) {
    connections.remove_if([all](Connection &connection) {
        const bool over = all || connection.done;
        if (over) {
            connection.thread.join();
        }
        return over;
    });
}

void PageRelay::carry(FileDescriptor client) const {
    const FileDescriptor api(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connectTo(api.get(), kApiPort) != 0) {
        return;
    }
    // A side that has nothing more to say is left out by a negative descriptor.
    std::array<pollfd, 2> sides{{{client.get(), POLLIN, 0}, {api.get(), POLLIN, 0}}};
    while (!stop && (sides[0].fd >= 0 || sides[1].fd >= 0)) {
        poll(sides.data(), sides.size(), kStopCheckMs);
        if (sides[0].revents != 0 && !passOn(client.get(), api.get())) {
            sides[0].fd = -1;
        }
        if (sides[1].revents != 0 && !passOn(api.get(), client.get())) {
            return;
        }
    }
}

}  // namespace sim
