// A bad network between a caller and a listener on the loopback: a UDP relay that
// loses, delays and cuts. The kernel's own emulation is not to be had everywhere.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "sim/file_descriptor.h"

namespace sim {

struct RelayOptions {
    std::uint16_t port = 0;              // where the caller calls
    std::uint16_t target_port = 0;       // where the listener listens
    double loss_percent = 0;             // each way; which datagrams go is the same every time
    std::chrono::milliseconds delay{0};  // each way
};

// Carries one caller at a time: the one whose datagram came last.
//
// Threads: one of its own carries; any may turn the switch or read the counters.
// Errors:  std::system_error if the port is taken.
class LossyRelay {
public:
    explicit LossyRelay(const RelayOptions &relay_options);
    ~LossyRelay();
    LossyRelay(const LossyRelay &) = delete;
    LossyRelay &operator=(const LossyRelay &) = delete;

    // True: nothing passes either way, as if the cable were out.
    void cut(bool is_out) { is_cut = is_out; }

    [[nodiscard]] std::uint64_t carried() const { return carried_count; }
    [[nodiscard]] std::uint64_t lost() const { return lost_count; }

private:
    using Clock = std::chrono::steady_clock;
    struct Datagram {
        Clock::time_point due;
        bool to_target;
        std::vector<std::uint8_t> bytes;
    };

    void run();
    [[nodiscard]] int millisecondsToNext() const;
    void takeFrom(const FileDescriptor &socket, bool to_target);
    void sendDue();

    const RelayOptions options;
    FileDescriptor caller_side;
    FileDescriptor target_side;
    sockaddr_in caller{};             // own thread only; all zero before the first datagram
    std::deque<Datagram> on_the_way;  // own thread only; by time
    std::minstd_rand dice;            // own thread only
    std::atomic<bool> is_cut{false};
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> carried_count{0};
    std::atomic<std::uint64_t> lost_count{0};
    std::thread thread;
};

}  // namespace sim
