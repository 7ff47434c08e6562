#include "http/server.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <tuple>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "http/connection.h"

namespace http {
namespace {

using namespace std::chrono_literals;

// So many bytes in every connection are no danger; ordinary ones have fewer.
constexpr std::size_t kUncounted = std::size_t{4} * 1024;
constexpr int kBacklog = 128;
// Few in one round, so that a flood of new clients leaves the present ones their turn.
constexpr int kAcceptsPerRound = 16;
constexpr auto kPause = 100ms;

void turnOn(int socket, int level, int option) {
    const int on = 1;
    setsockopt(socket, level, option, &on, sizeof on);
}

}  // namespace

Server::Server(Handler request_handler) : handler(std::move(request_handler)) {}

Server::~Server() = default;

int Server::listen(std::uint16_t port) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    turnOn(socket.number(), SOL_SOCKET, SO_REUSEADDR);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (!socket.isOpen() ||
        bind(socket.number(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(socket.number(), kBacklog) != 0) {
        return errno;
    }
    listener = std::move(socket);
    return 0;
}

std::uint16_t Server::port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener.number(), reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

void Server::poll(int ms) {
    waitForWork(ms);
    visitClients();
    if (watched.back().revents != 0) {
        acceptClients();
    }
    std::erase_if(connections, [](const auto &connection) { return !connection->isOpen(); });
}

void Server::waitForWork(int ms) {
    const auto now = Clock::now();
    const bool paused = now < paused_until;
    auto wake = now + std::chrono::milliseconds(ms);
    watched.clear();
    for (const auto &connection : connections) {
        watched.push_back({connection->descriptor(), connection->events(), 0});
        wake = std::min(wake, connection->wakeAt());
    }
    watched.push_back({paused ? -1 : listener.number(), POLLIN, 0});  // -1 is passed over
    if (paused) {
        wake = std::min(wake, paused_until);
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(std::max(wake - now, 0ns));
    if (::poll(watched.data(), watched.size(), static_cast<int>(wait.count())) < 0) {
        for (pollfd &one : watched) {  // undefined else
            one.revents = 0;
        }
    }
}

void Server::visitClients() {
    const auto now = Clock::now();
    for (std::size_t i = 0; i + 1 < watched.size(); ++i) {
        Connection &connection = *connections[i];
        if (connection.isOpen() && (watched[i].revents != 0 || connection.wakeAt() <= now)) {
            visit(connection, watched[i].revents);
        }
    }
}

void Server::visit(Connection &connection, short happened) {
    try {
        connection.work(happened);
        if (connection.held() > kUncounted) {
            limitMemory();
        }
    } catch (const std::exception &error) {
        printf("http: connection closed: %s\n", error.what());
        connection.close();
    }
}

void Server::acceptClients() {
    try {
        for (int taken = 0; taken < kAcceptsPerRound && acceptOne();) {
            ++taken;
        }
    } catch (const std::exception &error) {
        pauseAccepting(error.what());
    }
}

// False when there is no more to accept in this round.
bool Server::acceptOne() {
    Descriptor socket(accept4(listener.number(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket.isOpen()) {
        takeIn(std::move(socket));
        return true;
    }
    if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
        pauseAccepting(strerror(errno));
    }
    return false;
}

void Server::takeIn(Descriptor socket) {
    accepting_fails = false;
    turnOn(socket.number(), IPPROTO_TCP, TCP_NODELAY);
    turnOn(socket.number(), SOL_SOCKET, SO_KEEPALIVE);
    makeRoomForClient();
    connections.push_back(std::make_unique<Connection>(std::move(socket), handler));
}

void Server::pauseAccepting(const char *why) {
    if (!accepting_fails) {
        printf("http: accept: %s\n", why);
    }
    accepting_fails = true;
    paused_until = Clock::now() + kPause;
}

// The one that has been without a request longest goes, one that is being answered only if all
// are.
void Server::makeRoomForClient() {
    const auto rank = [](const auto &connection) {
        return std::tuple(!connection->isOpen(), connection->isSending(),
                          connection->lastRequest());
    };
    const auto open = std::count_if(connections.begin(), connections.end(),
                                    [](const auto &connection) { return connection->isOpen(); });
    if (static_cast<std::size_t>(open) >= kMaxClients) {
        (*std::min_element(connections.begin(), connections.end(),
                           [&](const auto &a, const auto &b) { return rank(a) < rank(b); }))
            ->close();
    }
}

// While all hold too much, the one that holds most has to let go; of equals, the oldest.
void Server::limitMemory() {
    for (;;) {
        std::size_t sum = 0;
        Connection *fattest = nullptr;
        for (const auto &connection : connections) {
            if (!connection->isOpen()) {
                continue;
            }
            sum += connection->held();
            if (fattest == nullptr || connection->held() > fattest->held()) {
                fattest = connection.get();
            }
        }
        if (sum <= kMaxHeld) {
            return;
        }
        fattest->letGo();
    }
}

}  // namespace http
