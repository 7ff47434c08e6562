// A descriptor that closes itself.
#pragma once

#include <utility>

#include <unistd.h>

class Descriptor {
public:
    explicit Descriptor(int number = -1) : fd(number) {}
    Descriptor(Descriptor &&other) noexcept : fd(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Descriptor() { reset(); }

    int number() const { return fd; }  // -1: none
    bool isOpen() const { return fd >= 0; }
    int release() { return std::exchange(fd, -1); }
    void reset(int number = -1) {
        if (fd >= 0) {
            close(fd);
        }
        fd = number;
    }

private:
    int fd;
};
