// The SRT sockets of a far end: one listener and its clients, or one caller.
//
// No socket blocks except a caller's while it connects, and that for a second at most.
#pragma once

#include <srt/srt.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "sim/peer_state.h"

namespace sim {

// Threads: one.
// Errors:  std::runtime_error from the constructor if it cannot listen; lost and
//          refused connections are the ordinary course of things.
class PeerLink {
public:
    explicit PeerLink(PeerState &shared);
    ~PeerLink();
    PeerLink(const PeerLink &) = delete;
    PeerLink &operator=(const PeerLink &) = delete;

    // Accepts or connects, drops what has broken, brings the counters up to date.
    // Cheap to call often: it looks every ten milliseconds.
    void maintain();
    [[nodiscard]] bool hasConnections() const { return !connections.empty(); }

    // One message to each connection; one that cannot take it misses it.
    void send(const std::uint8_t *message, std::size_t bytes);
    // Waits up to 20 ms for data, hands every message that has come to `take`.
    void receive(const std::function<void(const std::uint8_t *, std::size_t)> &take);

private:
    SRTSOCKET openSocket();
    void listen();
    void acceptClients();
    void connect();
    void add(SRTSOCKET connection);
    void dropBroken();
    void updateCounters();

    PeerState &state;
    SRTSOCKET listener = SRT_INVALID_SOCK;
    std::vector<SRTSOCKET> connections;
    int epoll = -1;  // holds the connections
    std::chrono::steady_clock::time_point next_look{};
    std::chrono::steady_clock::time_point next_call{};
};

}  // namespace sim
