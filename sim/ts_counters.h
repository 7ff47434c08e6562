// What a TsChecker has counted, in a form that another process can read while it is
// written: a peer program keeps its counters in memory shared with the test.
//
// Every word has one writer, the checker. Readers see each word whole, but two words
// may differ by the message that is being counted.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "sim/clock.h"
#include "sim/wait_until.h"

namespace sim {

// One message holds seven packets of 188 bytes.
inline constexpr std::size_t kPacketBytes = 188;
inline constexpr std::size_t kMessageBytes = 7 * kPacketBytes;
inline constexpr std::size_t kSourceCount = 16;
inline constexpr std::size_t kLargestMessage = 1500;
inline constexpr std::uint32_t kNoSource = 0xFFFFFFFF;

using Counter = std::atomic<std::uint64_t>;

// For the one writer: cheaper than a locked add.
inline void add(Counter &counter, std::uint64_t amount) {
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

// One source of a stream, told apart by the id in its packets. A packet that comes
// late counts as lost until then and as reordered afterwards.
struct SourceCounters {
    Counter packets;
    Counter runs;  // lives of the generator; a new one counts as no loss
    Counter lost;
    Counter reordered;
    Counter duplicates;
    Counter continuity_errors;  // on any of the source's PIDs
    Counter corrupt;            // filler bytes that are not what was sent
    Counter last_sequence;
    Counter first_arrival_ns;
    Counter last_arrival_ns;
};

struct TsCounters {
    std::array<SourceCounters, kSourceCount> sources;  // index = source id
    std::atomic<std::uint32_t> last_source;            // kNoSource before the first packet
    Counter messages;
    Counter bytes;
    Counter rate_bps;         // over the last half second or more in which data came
    Counter last_arrival_ns;  // 0 before the first message
    Counter foreign_bytes;    // not part of any packet of ours
    std::array<Counter, kLargestMessage + 1> message_sizes;  // larger ones count at the end

    // Messages of exactly `size` bytes.
    [[nodiscard]] std::uint64_t messagesOf(std::size_t size) const {
        return message_sizes.at(size).load();
    }
    // Waits until so many more have come; false if they do not.
    [[nodiscard]] bool grow(std::uint64_t by = 100,
                            std::chrono::milliseconds limit = kDefaultLimit) const {
        const std::uint64_t enough = messages + by;
        return waitUntil([&] { return messages > enough; }, limit);
    }
    // Nothing has come for a third of a second.
    [[nodiscard]] bool areSilent() const { return monotonicNs() > last_arrival_ns + 333'000'000; }
};

}  // namespace sim
