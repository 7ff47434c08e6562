#include "sim/transport_stream.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <random>

namespace sim {
namespace {

constexpr std::uint8_t kSyncByte = 0x47;
constexpr std::uint64_t kTableDistance = 140;  // packets between two PATs
constexpr std::uint64_t kPcrDistance = 35;
constexpr std::uint64_t kPcrPlace = 7;  // within that distance, clear of the tables
constexpr std::uint32_t kPatPid = 0;
constexpr std::uint32_t kPmtPid = 0x1000;   // + source id
constexpr std::uint32_t kMediaPid = 0x100;  // + source id
constexpr std::uint32_t kPcrPid = 0x200;    // + source id
constexpr std::uint32_t kIdMask = kSourceCount - 1;
constexpr std::uint64_t kRateSpanNs = 500'000'000;

// A media packet: header, PES header of a private stream, then these.
constexpr std::size_t kHeaderBytes = 4;
constexpr std::size_t kPesHeaderBytes = 6;
constexpr std::size_t kMarkAt = kHeaderBytes + kPesHeaderBytes;
constexpr std::size_t kRunAt = kMarkAt + 4;
constexpr std::size_t kSequenceAt = kRunAt + 4;
constexpr std::size_t kFillerAt = kSequenceAt + 8;
constexpr std::size_t kFillerBytes = kPacketBytes - kFillerAt;
constexpr std::array<std::uint8_t, 4> kMark = {'t', 'w', 's', 'm'};

void putBigEndian(std::uint8_t *out, std::uint64_t value, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) {
        out[i] = static_cast<std::uint8_t>(value >> (8 * (bytes - 1 - i)));
    }
}

std::uint64_t getBigEndian(const std::uint8_t *in, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        value = (value << 8U) | in[i];
    }
    return value;
}

// 256 steps and one filler's length more, so that each filler is a slice of it.
constexpr auto makeFiller() {
    std::array<std::uint8_t, 256 + kFillerBytes> filler{};
    for (std::size_t i = 0; i < filler.size(); ++i) {
        filler[i] = static_cast<std::uint8_t>(i * 167 + 13);
    }
    return filler;
}
constexpr auto kFiller = makeFiller();

const std::uint8_t *fillerOf(std::uint64_t sequence) {
    return kFiller.data() + (sequence & 0xFFU);
}

// Writes the four header bytes; `adaptation` is the two bits of that name.
void putHeader(std::uint8_t *out, std::uint32_t pid, bool unit_start, unsigned adaptation,
               std::uint8_t counter) {
    out[0] = kSyncByte;
    putBigEndian(out + 1, pid | (unit_start ? 0x4000U : 0U), 2);
    out[3] = static_cast<std::uint8_t>(adaptation << 4U | (counter & 0xFU));
}

std::uint32_t crc32(const std::uint8_t *bytes, std::size_t count) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < count; ++i) {
        crc ^= static_cast<std::uint32_t>(bytes[i]) << 24U;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc << 1U) ^ ((crc & 0x80000000U) != 0 ? 0x04C11DB7U : 0U);
        }
    }
    return crc;
}

// A packet with one short table section: `id_word` is what identifies the table,
// `body` what stands between the section numbers and the checksum.
void putSection(std::uint8_t *out, std::uint32_t pid, std::uint8_t counter, std::uint8_t table_id,
                std::uint32_t id_word, const std::vector<std::uint8_t> &body) {
    std::memset(out, 0xFF, kPacketBytes);
    putHeader(out, pid, true, 1, counter);
    out[4] = 0;
    std::uint8_t *section = out + 5;
    section[0] = table_id;
    putBigEndian(section + 1, 0xB000U | (5 + body.size() + 4), 2);
    putBigEndian(section + 3, id_word, 2);
    section[5] = 0xC1;
    section[6] = 0;
    section[7] = 0;
    std::copy(body.begin(), body.end(), section + 8);
    putBigEndian(section + 8 + body.size(), crc32(section, 8 + body.size()), 4);
}

std::uint8_t high(std::uint32_t pid) {
    return static_cast<std::uint8_t>(0xE0U | pid >> 8U);
}
std::uint8_t low(std::uint32_t pid) {
    return static_cast<std::uint8_t>(pid);
}

std::uint32_t pidOf(const std::uint8_t *packet) {
    return static_cast<std::uint32_t>(getBigEndian(packet + 1, 2)) & 0x1FFFU;
}

}  // namespace

// The first packets are media: they tell the checker of the new run before a table does.
TsGenerator::TsGenerator(std::uint32_t id, std::uint64_t rate)
    : source_id(id & kIdMask), rate_bps(std::max<std::uint64_t>(rate, 1)),
      run(std::random_device()()), packets_made(2) {}

void TsGenerator::fill(std::uint8_t *out, std::size_t packets) {
    for (std::size_t i = 0; i < packets; ++i, ++packets_made) {
        std::uint8_t *packet = out + i * kPacketBytes;
        if (packets_made % kTableDistance < 2) {
            writeTables(packet);
        } else if (packets_made % kPcrDistance == kPcrPlace) {
            writePcr(packet);
        } else {
            writeMedia(packet);
        }
    }
}

void TsGenerator::fillBytes(std::uint8_t *out, std::size_t bytes) {
    const std::size_t left = std::min(rest.size(), bytes);
    std::copy_n(rest.begin(), left, out);
    rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(left));
    const std::size_t whole = (bytes - left) / kPacketBytes;
    fill(out + left, whole);
    const std::size_t done = left + whole * kPacketBytes;
    if (done < bytes) {
        rest.resize(kPacketBytes);
        fill(rest.data(), 1);
        std::copy_n(rest.begin(), bytes - done, out + done);
        rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(bytes - done));
    }
}

void TsGenerator::writeTables(std::uint8_t *out) {
    const std::uint32_t pmt_pid = kPmtPid + source_id;
    if (packets_made % kTableDistance == 0) {
        putSection(out, kPatPid, table_counter, 0x00, source_id,
                   {0x00, 0x01, high(pmt_pid), low(pmt_pid)});
        return;
    }
    const std::uint32_t media_pid = kMediaPid + source_id;
    const std::uint32_t pcr_pid = kPcrPid + source_id;
    putSection(out, pmt_pid, table_counter++, 0x02, 1,
               {high(pcr_pid), low(pcr_pid), 0xF0, 0x00,  // no program descriptors
                0x06, high(media_pid), low(media_pid), 0xF0, 0x00});
}

void TsGenerator::writePcr(std::uint8_t *out) const {
    std::memset(out, 0xFF, kPacketBytes);
    putHeader(out, kPcrPid + source_id, false, 2, 0);
    out[4] = kPacketBytes - 5;
    out[5] = 0x10;
    const double seconds =
        static_cast<double>(packets_made * kPacketBytes * 8) / static_cast<double>(rate_bps);
    const auto ticks = static_cast<std::uint64_t>(seconds * 27'000'000.0);
    putBigEndian(out + 6, (ticks / 300) << 15U | 0x7E00U | ticks % 300, 6);
}

void TsGenerator::writeMedia(std::uint8_t *out) {
    putHeader(out, kMediaPid + source_id, true, 1, media_counter++);
    putBigEndian(out + kHeaderBytes, 0x000001BF, 4);
    putBigEndian(out + kHeaderBytes + 4, kPacketBytes - kMarkAt, 2);
    std::copy(kMark.begin(), kMark.end(), out + kMarkAt);
    putBigEndian(out + kRunAt, run, 4);
    putBigEndian(out + kSequenceAt, sequence, 8);
    std::memcpy(out + kFillerAt, fillerOf(sequence), kFillerBytes);
    ++sequence;
}

TsChecker::TsChecker(TsCounters &target) : counters(target), sources(kSourceCount) {
    new (&counters) TsCounters{};
    counters.last_source = kNoSource;
    carry.reserve(2 * kPacketBytes);
}

void TsChecker::take(const std::uint8_t *message, std::size_t bytes, std::uint64_t arrival_ns) {
    if (!carry.empty()) {
        const std::size_t missing = std::min(kPacketBytes - carry.size(), bytes);
        carry.insert(carry.end(), message, message + missing);
        message += missing;
        bytes -= missing;
        const std::size_t rest = takePackets(carry.data(), carry.size(), arrival_ns);
        carry.erase(carry.begin(), carry.end() - static_cast<std::ptrdiff_t>(rest));
        countMessage(missing + bytes, arrival_ns);
    } else {
        countMessage(bytes, arrival_ns);
    }
    if (carry.empty()) {
        const std::size_t rest = takePackets(message, bytes, arrival_ns);
        carry.assign(message + bytes - rest, message + bytes);
    }
}

void TsChecker::countMessage(std::size_t bytes, std::uint64_t arrival_ns) {
    add(counters.messages, 1);
    add(counters.bytes, bytes);
    add(counters.message_sizes[std::min(bytes, kLargestMessage)], 1);
    updateRate(arrival_ns);
    counters.last_arrival_ns.store(arrival_ns, std::memory_order_relaxed);
    rate_bytes += bytes;
}

void TsChecker::updateRate(std::uint64_t arrival_ns) {
    const std::uint64_t span_ns = arrival_ns - rate_since_ns;
    const bool after_silence = arrival_ns - counters.last_arrival_ns > kRateSpanNs;
    if (span_ns < kRateSpanNs) {
        return;
    }
    if (!after_silence) {
        counters.rate_bps = rate_bytes * 8 * 1'000'000 / (span_ns / 1000);
    }
    rate_since_ns = arrival_ns;
    rate_bytes = 0;
}

std::size_t TsChecker::takePackets(const std::uint8_t *at, std::size_t bytes,
                                   std::uint64_t arrival_ns) {
    while (bytes >= kPacketBytes) {
        const bool ours = at[0] == kSyncByte && takePacket(at, arrival_ns);
        const std::size_t step = ours ? kPacketBytes : 1;
        add(counters.foreign_bytes, ours ? 0 : 1);
        at += step;
        bytes -= step;
    }
    return bytes;
}

bool TsChecker::takePacket(const std::uint8_t *packet, std::uint64_t arrival_ns) {
    const std::uint32_t pid = pidOf(packet);
    if (pid == kPatPid) {
        const auto id = static_cast<std::uint32_t>(getBigEndian(packet + 8, 2)) & kIdMask;
        checkContinuity(id, 0, packet);
        return true;
    }
    const std::uint32_t id = pid & kIdMask;
    switch (pid - id) {
    case kPmtPid:
        checkContinuity(id, 1, packet);
        return true;
    case kPcrPid:
        return true;
    case kMediaPid:
        if (std::memcmp(packet + kMarkAt, kMark.data(), kMark.size()) != 0) {
            return false;
        }
        takeMedia(id, packet, arrival_ns);
        checkContinuity(id, 2, packet);
        return true;
    default:
        return false;
    }
}

void TsChecker::takeMedia(std::uint32_t id, const std::uint8_t *packet, std::uint64_t arrival_ns) {
    const std::uint64_t sequence = getBigEndian(packet + kSequenceAt, 8);
    const auto run = static_cast<std::uint32_t>(getBigEndian(packet + kRunAt, 4));
    SourceCounters &totals = counters.sources[id];
    if (std::memcmp(packet + kFillerAt, fillerOf(sequence), kFillerBytes) != 0) {
        add(totals.corrupt, 1);
    }
    if (totals.packets == 0) {
        totals.first_arrival_ns = arrival_ns;
    }
    if (totals.packets == 0 || sources[id].run != run) {
        beginRun(id, run, sequence);
    }
    countSequence(id, sequence);
    add(totals.packets, 1);
    totals.last_arrival_ns.store(arrival_ns, std::memory_order_relaxed);
    counters.last_source.store(id, std::memory_order_relaxed);
}

void TsChecker::beginRun(std::uint32_t id, std::uint32_t run, std::uint64_t sequence) {
    sources[id] = Source{};
    sources[id].run = run;
    sources[id].next_sequence = sequence;
    add(counters.sources[id].runs, 1);
}

void TsChecker::countSequence(std::uint32_t id, std::uint64_t sequence) {
    SourceCounters &totals = counters.sources[id];
    Source &source = sources[id];
    if (sequence < source.next_sequence) {
        const bool known = source.next_sequence - sequence <= kReorderWindow;
        const bool seen = known && source.seen[sequence % kReorderWindow];
        add(seen ? totals.duplicates : totals.reordered, 1);
        if (known && !seen && totals.lost > 0) {
            totals.lost = totals.lost - 1;
        }
    } else {
        const std::uint64_t gap = sequence - source.next_sequence;
        add(totals.lost, gap);
        for (std::uint64_t i = 0; i < std::min(gap, kReorderWindow); ++i) {
            source.seen[(sequence - 1 - i) % kReorderWindow] = false;
        }
        source.next_sequence = sequence + 1;
        totals.last_sequence.store(sequence, std::memory_order_relaxed);
    }
    source.seen[sequence % kReorderWindow] = true;
}

void TsChecker::checkContinuity(std::uint32_t id, std::size_t pid_kind,
                                const std::uint8_t *packet) {
    int &last = sources[id].counter[pid_kind];
    const int counter = packet[3] & 0xF;
    if (last >= 0 && counter != ((last + 1) & 0xF)) {
        add(counters.sources[id].continuity_errors, 1);
    }
    last = counter;
}

}  // namespace sim
