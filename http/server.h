// An HTTP server in one thread: a listener, the clients, and the rounds that visit them.
//
// A head is refused with a status (400, 413, 431, 503) where it cannot be read; it has at most
// 100 fields, of which handlers see 30. Nothing that a client sends is logged, so that no client
// can fill a log; this layer's few lines on stdout are about failures of its own sockets.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <poll.h>

#include "core/shared/descriptor.h"
#include "http/reply.h"

namespace http {

class Connection;

// More clients than this at a time would use up the descriptors that the stream, the log and
// the settings file need.
constexpr std::size_t kMaxClients = 256;
// What all connections may hold in memory: requests on their way in, replies on their way out.
// The longest single reply fits, the longest body with each byte escaped in six.
constexpr std::size_t kMaxHeld = std::size_t{24} * 1024 * 1024;

// Threads: one; everything happens inside poll(), handlers included.
// Errors:  no exception leaves poll(): a connection whose handler throws is closed. Where a
//          client cannot be taken in (no descriptor, no memory), the listener pauses for a
//          moment, lest a client that waits in the backlog keep the loop spinning.
class Server {
public:
    explicit Server(Handler request_handler);
    // Carries out what replies that are still on their way want done.
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Takes clients at `port` of all IPv4 addresses; 0 takes a free port. Returns 0 or an errno.
    [[nodiscard]] int listen(std::uint16_t port);
    bool isListening() const { return listener.isOpen(); }
    std::uint16_t port() const;  // the true one. Requires: isListening()

    // Waits at most `ms` for something to do, then does one round of work.
    void poll(int ms);

    std::size_t clients() const { return connections.size(); }

private:
    void waitForWork(int ms);
    void visitClients();
    void visit(Connection &connection, short happened);
    void acceptClients();
    bool acceptOne();
    void takeIn(Descriptor socket);
    void pauseAccepting(const char *why);
    void makeRoomForClient();
    void limitMemory();

    const Handler handler;
    Descriptor listener;
    std::vector<std::unique_ptr<Connection>> connections;  // oldest first
    std::vector<pollfd> watched;  // of one round: the connections', the listener's behind them
    std::chrono::steady_clock::time_point paused_until{};  // accepting; in the past: not paused
    bool accepting_fails = false;                          // and has said so
};

}  // namespace http
