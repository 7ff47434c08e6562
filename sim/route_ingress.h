// The stream that an encoder's hardware makes, at /dev/rt_ingress4.
//
// As a FIFO it comes at a rate, in pieces of a chosen size, can pause, flood, end (the
// reader then reads nothing, at once) and come back. A FIFO holds at most a megabyte;
// for one read of 1000 units and for a device that ends there is the plain file.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "sim/file_descriptor.h"
#include "sim/transport_stream.h"

namespace sim {

inline constexpr const char *kIngressDevice = "/dev/rt_ingress4";

struct IngressOptions {
    std::uint64_t rate_bps = 4'000'000;
    std::size_t piece_bytes = kMessageBytes;  // of one write
    std::uint32_t source_id = 1;
    bool paused = false;
};

// Requires: the sandbox.
// Threads:  one of its own writes; one other gives orders.
// Errors:   std::system_error if the device cannot be made.
class RouteIngress {
public:
    explicit RouteIngress(const IngressOptions &ingress_options = {});
    ~RouteIngress();  // removes the device
    RouteIngress(const RouteIngress &) = delete;
    RouteIngress &operator=(const RouteIngress &) = delete;

    [[nodiscard]] std::uint32_t id() const { return options.source_id; }
    // Open, and gives nothing.
    void pause() { is_paused = true; }
    void resume() { is_paused = false; }
    // Closed: the reader sees the end at each read. comeBack() opens it again.
    void end() { is_ended = true; }
    void comeBack() { is_ended = false; }
    // From here on as fast as the reader takes it; returns once the reader takes no more
    // for a while. False if it never stopped.
    bool floodUntilFull();

    // Whether a reader has the device open and is being written to.
    [[nodiscard]] bool isOpen() const { return is_open; }

private:
    void run();
    bool openDevice();
    void writePiece();

    const IngressOptions options;
    TsGenerator generator;  // own thread only
    FileDescriptor device;  // own thread only
    std::atomic<bool> is_paused;
    std::atomic<bool> is_ended{false};
    std::atomic<bool> is_open{false};
    std::atomic<bool> stop{false};
    std::atomic<bool> floods{false};
    std::atomic<std::uint64_t> written_pieces{0};
    std::thread thread;
};

// The device as a plain file with `bytes` of stream in it; appending more later is how
// such a device comes back. Removed with its owner.
class IngressFile {
public:
    explicit IngressFile(std::size_t bytes, std::uint32_t source_id = 1);
    ~IngressFile();
    IngressFile(const IngressFile &) = delete;
    IngressFile &operator=(const IngressFile &) = delete;

    void append(std::size_t bytes);

private:
    TsGenerator generator;
    FileDescriptor file;
};

}  // namespace sim
