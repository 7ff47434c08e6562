// The SRT socket of a far end. It waits for the program under test for as long as that
// takes and can be called off meanwhile.
#pragma once

#include <atomic>

#include <srt/srt.h>

namespace bench {

enum class Role { caller, listener };

inline Role opposite(Role role) {
    return role == Role::caller ? Role::listener : Role::caller;
}

// Threads: one. Errors: std::runtime_error if the port cannot be had.
class FarSocket {
public:
    // A listener listens once this returns; a caller does nothing yet.
    FarSocket(Role far_role, int peer_port, int delay_ms);
    ~FarSocket();
    FarSocket(const FarSocket &) = delete;
    FarSocket &operator=(const FarSocket &) = delete;

    // Leaves whom it has met before. Returns true once the other side is there, false once `stop`
    // is set.
    bool meet(const std::atomic<bool> &stop);

    // Requires: meet() returned true.
    [[nodiscard]] SRTSOCKET get() const { return peer; }

private:
    void closePeer();
    void listen();
    bool tryCall();
    bool tryAccept();

    const Role role;
    const int port;
    const int latency_ms;
    SRTSOCKET listener = SRT_INVALID_SOCK;
    SRTSOCKET peer = SRT_INVALID_SOCK;
};

}  // namespace bench
