// Where payloads can be seen pass, with the kernel's own time of each: the stamp is taken
// while the sender is still in its system call, so how soon the reader here is scheduled
// plays no part.
#pragma once

#include <atomic>
#include <cstddef>
#include <thread>

#include "bench/recorder.h"
#include "sim/file_descriptor.h"

namespace bench {

// The unit's input, UDP port 9261 of the loopback.
sim::FileDescriptor openUnitInput();

// A look at the loopback from outside: every SRT data packet, IP header included.
// Requires: CAP_NET_RAW.
sim::FileDescriptor openWireTap();

inline constexpr std::size_t kUnitInputHeader = 0;
inline constexpr std::size_t kWireTapHeader = 20 + 8 + 16;  // IPv4, UDP, SRT

// Records whatever has a payload's size behind its header, on a thread of its own.
class StampedSocket {
public:
    StampedSocket(sim::FileDescriptor socket, std::size_t header, Recorder &into);
    ~StampedSocket();
    StampedSocket(const StampedSocket &) = delete;
    StampedSocket &operator=(const StampedSocket &) = delete;

private:
    void run();
    bool drain();

    const sim::FileDescriptor fd;
    const std::size_t header_bytes;
    Recorder &recorder;
    std::atomic<bool> stop{false};
    std::thread worker;
};

}  // namespace bench
