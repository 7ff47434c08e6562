// A UDP receiver with an optional multicast join, of the same shape as file_input_t. It
// stands ready as a source; nothing in the running program makes one.
#pragma once

#include <string>

#include <netinet/in.h>
#include <sys/types.h>

// Threads: one thread only.
// Errors:  the constructor throws the int 1; a failed bind without a message.
class udp_input_t {
public:
    // Without `interface_address` (null) binds `address` and joins nothing. With it,
    // binds the wildcard address and joins the group `address` on that interface.
    // All are dotted IPv4 addresses, `port` in host byte order.
    udp_input_t(const std::string &address, int port, const char *interface_address);
    virtual ~udp_input_t();
    udp_input_t(const udp_input_t &) = delete;
    udp_input_t &operator=(const udp_input_t &) = delete;

    // One datagram's bytes; -2 if none came in 2 seconds; 0 if waiting failed or the
    // datagram was empty; -1 if receiving failed.
    virtual ssize_t read(char *buffer, std::size_t length);

private:
    void joinGroup(const std::string &address, const char *interface_address);

    int socket_fd = -1;
    sockaddr_in local_address{};
    ip_mreq membership{};  // a group address other than 0 marks a joined group
};
