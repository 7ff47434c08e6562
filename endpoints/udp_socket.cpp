#include "endpoints/udp_socket.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/socket.h>

int createUdpSocket() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        fprintf(stderr, "### Unable to create socket: %s\n", strerror(errno));
        throw 1;
    }
    return fd;
}
