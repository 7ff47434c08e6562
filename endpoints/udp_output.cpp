#include "endpoints/udp_output.h"

#include <arpa/inet.h>
#include <unistd.h>

#include "endpoints/udp_socket.h"

udp_output_t::udp_output_t(const std::string &address, int port) : socket_fd(createUdpSocket()) {
    destination.sin_family = AF_INET;
    destination.sin_port = htons(static_cast<in_port_t>(port));
    destination.sin_addr.s_addr = inet_addr(address.c_str());
}

udp_output_t::~udp_output_t() {
    if (socket_fd != 0) {
        close(socket_fd);
    }
    socket_fd = 0;
}

ssize_t udp_output_t::write(const char *buffer, std::size_t length) {
    return sendto(socket_fd, buffer, length, 0, reinterpret_cast<const sockaddr *>(&destination),
                  sizeof destination);
}
