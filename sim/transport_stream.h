// A transport stream that tells on its carrier.
//
// Packets are valid: a PAT, a PMT and a PCR at their usual distances, continuity
// counters, and between them a private stream whose packets carry the source's id, a
// 64-bit sequence number and a filler that follows from the number. Each source has PIDs
// of its own, so that several can follow one another on one wire without their continuity
// counters mixing; and each run of a source has a number of its own, so that a source that
// was restarted counts as no loss.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sim/ts_counters.h"

namespace sim {

// Makes the packets of one source.
// Threads: one.
class TsGenerator {
public:
    // `source_id` below kSourceCount. `rate_bps` sets the pace of the PCR only.
    TsGenerator(std::uint32_t source_id, std::uint64_t rate_bps);

    // Fills `packets` x 188 bytes.
    void fill(std::uint8_t *out, std::size_t packets);
    // The same stream in pieces that need not end where a packet does.
    void fillBytes(std::uint8_t *out, std::size_t bytes);

private:
    void writeTables(std::uint8_t *out);
    void writePcr(std::uint8_t *out) const;
    void writeMedia(std::uint8_t *out);

    const std::uint32_t source_id;
    const std::uint64_t rate_bps;
    const std::uint32_t run;  // a random number that tells this generator's life from others
    std::uint64_t packets_made;
    std::uint64_t sequence = 0;
    std::uint8_t table_counter = 0;  // of the PAT and of the PMT alike
    std::uint8_t media_counter = 0;
    std::vector<std::uint8_t> rest;  // of the packet that the last fillBytes() cut
};

// Takes a stream message by message, puts packets together that messages cut, and
// counts into a TsCounters that others may read meanwhile.
// Threads: take() from one only.
class TsChecker {
public:
    // Sets the counters to zero. Requires: `target` outlives the checker.
    explicit TsChecker(TsCounters &target);

    void take(const std::uint8_t *message, std::size_t bytes, std::uint64_t arrival_ns);

private:
    static constexpr std::uint64_t kReorderWindow = 65536;  // sequence numbers

    struct Source {
        std::array<int, 3> counter = {-1, -1, -1};  // of the PAT, the PMT and the media
        std::uint32_t run = 0;
        std::uint64_t next_sequence = 0;
        std::bitset<kReorderWindow> seen;  // index = sequence number modulo the window
    };

    void countMessage(std::size_t bytes, std::uint64_t arrival_ns);
    void updateRate(std::uint64_t arrival_ns);
    // Eats whole packets and returns how many bytes are left over.
    std::size_t takePackets(const std::uint8_t *at, std::size_t bytes, std::uint64_t arrival_ns);
    bool takePacket(const std::uint8_t *packet, std::uint64_t arrival_ns);
    void takeMedia(std::uint32_t id, const std::uint8_t *packet, std::uint64_t arrival_ns);
    void beginRun(std::uint32_t id, std::uint32_t run, std::uint64_t sequence);
    void countSequence(std::uint32_t id, std::uint64_t sequence);
    void checkContinuity(std::uint32_t id, std::size_t pid_kind, const std::uint8_t *packet);

    TsCounters &counters;
    std::vector<Source> sources;      // index = source id
    std::vector<std::uint8_t> carry;  // the beginning of a packet that a message cut
    std::uint64_t rate_since_ns = 0;
    std::uint64_t rate_bytes = 0;
};

}  // namespace sim
