// The decoder family's way to the unit: each SRT message leaves as one datagram to the
// unit's input on the loopback interface. The socket is not connected, so that a unit
// that is not listening is never noticed and slows nothing down.
#pragma once

#include <string>

#include <netinet/in.h>
#include <sys/types.h>

// Threads: main thread only.  Owner: main().
// Errors:  the constructor says why on stderr and throws the int 1.
class udp_output_t {
public:
    // `address` is a dotted IPv4 address, `port` in host byte order.
    udp_output_t(const std::string &address, int port);
    virtual ~udp_output_t();
    udp_output_t(const udp_output_t &) = delete;
    udp_output_t &operator=(const udp_output_t &) = delete;

    // Sends one datagram; what sendto gives. Nobody needs to look at it: a datagram
    // that fails is lost.
    virtual ssize_t write(const char *buffer, std::size_t length);

private:
    int socket_fd;
    sockaddr_in destination{};
};
