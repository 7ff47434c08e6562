// Ports of the loopback, which a sandbox shares with nobody.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "sim/file_descriptor.h"
#include "sim/system_error.h"

namespace sim {

inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// As bind(2) and connect(2).
inline int bindTo(int socket, std::uint16_t port) {
    const sockaddr_in address = loopback(port);
    return bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}
inline int connectTo(int socket, std::uint16_t port) {
    const sockaddr_in address = loopback(port);
    return connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

// Throws std::system_error where the port is taken.
inline FileDescriptor listenAt(std::uint16_t port, int backlog) {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int one = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    check(bindTo(socket.get(), port), "bind to port " + std::to_string(port));
    check(listen(socket.get(), backlog), "listen at port " + std::to_string(port));
    return socket;
}

}  // namespace sim
