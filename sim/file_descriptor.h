// Owner of one file descriptor of the simulated unit.
#pragma once

#include <unistd.h>

#include <utility>

namespace sim {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int opened) : number(opened) {}
    FileDescriptor(FileDescriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~FileDescriptor() { reset(); }

    [[nodiscard]] int get() const { return number; }
    [[nodiscard]] bool isOpen() const { return number >= 0; }
    void reset() {
        if (number >= 0) {
            close(std::exchange(number, -1));
        }
    }

private:
    int number = -1;
};

}  // namespace sim
