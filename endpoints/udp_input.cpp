#include "endpoints/udp_input.h"

#include <cerrno>
#include <cstdio>

#include <arpa/inet.h>
#include <sys/select.h>
#include <unistd.h>

#include "endpoints/udp_socket.h"

namespace {

constexpr int kDescriptorBound = 1024;
constexpr time_t kWaitSeconds = 2;

}  // namespace

udp_input_t::udp_input_t(const std::string &address, int port, const char *interface_address)
    : socket_fd(createUdpSocket()) {
    const int one = 1;
    setsockopt(socket_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    local_address.sin_family = AF_INET;
    local_address.sin_port = htons(static_cast<in_port_t>(port));
    local_address.sin_addr.s_addr =
        interface_address != nullptr ? INADDR_ANY : inet_addr(address.c_str());
    if (bind(socket_fd, reinterpret_cast<sockaddr *>(&local_address), sizeof local_address) == -1) {
        close(socket_fd);
        throw 1;
    }
    if (interface_address != nullptr) {
        joinGroup(address, interface_address);
    }
}

void udp_input_t::joinGroup(const std::string &address, const char *interface_address) {
    membership.imr_multiaddr.s_addr = inet_addr(address.c_str());
    membership.imr_interface.s_addr = inet_addr(interface_address);
    if (setsockopt(socket_fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) ==
        -1) {
        perror("Adding multicast group error");
        close(socket_fd);
        throw 1;
    }
    printf("Addded multicast group %s on %s\n", address.c_str(), interface_address);
}

udp_input_t::~udp_input_t() {
    if (socket_fd != 0) {
        if (membership.imr_multiaddr.s_addr != 0) {
            setsockopt(socket_fd, IPPROTO_IP, IP_DROP_MEMBERSHIP, &membership, sizeof membership);
        }
        close(socket_fd);
    }
    socket_fd = 0;
}

ssize_t udp_input_t::read(char *buffer, std::size_t length) {
    fd_set waiting;
    FD_ZERO(&waiting);
    FD_SET(socket_fd, &waiting);
    timeval limit{kWaitSeconds, 0};
    int ready = -1;
    do {
        ready = select(kDescriptorBound, &waiting, nullptr, nullptr, &limit);
    } while (ready == -1 && errno == EINTR);
    if (ready == -1) {
        return 0;
    }
    if (ready == 0) {
        return -2;
    }
    if (!FD_ISSET(socket_fd, &waiting)) {
        return -1;
    }
    return recv(socket_fd, buffer, length, 0);
}
