// The unit's decoder input: takes what the product sends to 127.0.0.1:9261.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "sim/file_descriptor.h"
#include "sim/transport_stream.h"
#include "sim/ts_counters.h"

namespace sim {

inline constexpr std::uint16_t kDecoderInputPort = 9261;

// Threads: one of its own counts; any may read the counters.
// Errors:  std::system_error if the port is taken.
class UdpSink {
public:
    explicit UdpSink(std::uint16_t port = kDecoderInputPort);
    ~UdpSink();
    UdpSink(const UdpSink &) = delete;
    UdpSink &operator=(const UdpSink &) = delete;

    [[nodiscard]] const TsCounters &received() const { return *counters; }
    // The source whose data came last; kNoSource before any.
    [[nodiscard]] std::uint32_t lastSource() const { return counters->last_source; }
    [[nodiscard]] std::uint64_t datagrams() const { return counters->messages; }
    // Waits until some more packets of the source have come; false if they do not.
    [[nodiscard]] bool receivesFrom(std::uint32_t source) const;

private:
    void run();

    FileDescriptor socket;
    const std::unique_ptr<TsCounters> counters;
    TsChecker checker;  // the own thread's only
    std::atomic<bool> stop{false};
    std::thread thread;
};

}  // namespace sim
