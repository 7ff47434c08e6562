// A descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace net {

class Descriptor {
public:
    explicit Descriptor(int number) : fd(number) {}
    Descriptor(Descriptor &&other) noexcept : fd(other.release()) {}
    Descriptor &operator=(Descriptor &&) = delete;
    ~Descriptor() {
        if (fd >= 0) {
            close(fd);
        }
    }

    int number() const { return fd; }  // -1: none
    int release() { return std::exchange(fd, -1); }

private:
    int fd;
};

}  // namespace net
