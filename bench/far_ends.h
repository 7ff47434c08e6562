// The other ends of the program under test, each on a thread of its own: SRT far ends and
// the route driver's device. They start to work when made and end when destroyed.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "bench/far_socket.h"
#include "bench/metronome.h"
#include "bench/recorder.h"
#include "sim/file_descriptor.h"

namespace bench {

inline constexpr const char *kDevicePath = "/dev/rt_ingress4";

// Sends stamped payloads to whoever it meets, and calls or waits again when that ends. A rate of 0
// keeps the connection silent.
class SrtSender {
public:
    SrtSender(Role role, int port, int latency_ms, std::uint64_t rate_mbit);
    ~SrtSender();
    SrtSender(const SrtSender &) = delete;
    SrtSender &operator=(const SrtSender &) = delete;

    [[nodiscard]] bool isConnected() const { return connected; }

private:
    void run();
    void keepSilent() const;
    void send();

    FarSocket far;               // worker only, once it runs
    const bool calls;            // fixed at construction
    const std::uint64_t rate;    // Mbit/s; fixed at construction
    std::uint64_t sequence = 0;  // worker only
    std::atomic<bool> stop{false};
    std::atomic<bool> connected{false};
    std::thread worker;
};

// Receives payloads and records them; meets again like the sender.
class SrtReceiver {
public:
    SrtReceiver(Role role, int port, int latency_ms, Recorder &into);
    ~SrtReceiver();
    SrtReceiver(const SrtReceiver &) = delete;
    SrtReceiver &operator=(const SrtReceiver &) = delete;

    [[nodiscard]] bool isConnected() const { return connected; }

private:
    void run();
    void receive();

    FarSocket far;  // worker only, once it runs
    Recorder &recorder;
    std::atomic<bool> stop{false};
    std::atomic<bool> connected{false};
    std::thread worker;
};

// The writing side of the route driver's device, a FIFO. What does not fit is thrown
// away, as the driver would, and shows as lost at the far end.
class FifoWriter {
public:
    // A rate of 0 writes nothing but what writeUnit() is asked for.
    explicit FifoWriter(std::uint64_t rate_mbit);
    ~FifoWriter();
    FifoWriter(const FifoWriter &) = delete;
    FifoWriter &operator=(const FifoWriter &) = delete;

    // Requires: a rate of 0.
    void writeUnit();
    // With the device closed a reader gets "nothing" at once, again and again.
    void closeDevice();
    void openDevice();

private:
    void run(std::uint64_t rate_mbit);

    sim::FileDescriptor fd;
    std::uint64_t sequence = 0;
    std::atomic<bool> stop{false};
    std::thread worker;
};

}  // namespace bench
