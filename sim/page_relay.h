// The way from the machine's loopback to the page: port 8000 of the sandbox, whose
// network no browser can reach, offered at a port outside.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <thread>

#include "sim/file_descriptor.h"

namespace sim {

// Threads: one of its own accepts, one more carries each connection.
// Errors:  std::system_error from the constructor if no port is to be had.
class PageRelay {
public:
    // Takes port 8000, or the next free one of a hundred.
    // Requires: the network outside, so before enterSandbox().
    PageRelay();
    ~PageRelay();
    PageRelay(const PageRelay &) = delete;
    PageRelay &operator=(const PageRelay &) = delete;

    [[nodiscard]] std::uint16_t port() const { return taken_port; }
    // Begins to carry into the network that the calling thread is in.
    void start();

private:
    struct Connection {
        std::atomic<bool> done{false};
        std::thread thread;
    };

    void run();
    void carry(FileDescriptor client) const;
    void joinConnections(bool all);

    FileDescriptor listener;
    std::uint16_t taken_port = 0;  // fixed at construction
    std::atomic<bool> stop{false};
    std::list<Connection> connections;  // accepting thread only
    std::thread thread;
};

}  // namespace sim
