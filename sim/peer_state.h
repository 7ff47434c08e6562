// What a far end and its owner share: settings, a switch, and counters.
//
// A far end is a process, so that it can be killed or frozen like a real one, and so
// that its SRT library is not the one under test. This object lies in memory that both
// map. It must stay free of pointers.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/ts_counters.h"

namespace sim {

enum class PeerRole : std::uint32_t { sender, receiver };
enum class PeerMode : std::uint32_t { listener, caller };
enum class PeerPhase : std::uint32_t { starting, ready, connected };

// Text in a fixed place; what does not fit is cut.
template <std::size_t Size>
class FixedText {
public:
    FixedText &operator=(const std::string &value) {
        text[value.copy(text.data(), Size - 1)] = '\0';
        return *this;
    }
    [[nodiscard]] const char *get() const { return text.data(); }

private:
    std::array<char, Size> text;
};

// Written before the process starts, read-only afterwards.
struct PeerSettings {
    PeerRole role;
    PeerMode mode;
    FixedText<256> host;
    std::uint16_t port;
    FixedText<513> stream_id;
    FixedText<81> passphrase;
    int pbkeylen;
    int latency_ms;
    std::uint64_t rate_bps;
    std::size_t message_bytes;
    std::uint32_t source_id;
};

// From the SRT library, for the connection that was made last; a new one starts anew.
struct LinkCounters {
    Counter packets;  // sent or received, by role
    Counter lost;
    Counter retransmitted;
    Counter dropped;
    Counter rate_bps;
    std::atomic<double> round_trip_ms;
};

struct PeerState {
    PeerSettings settings;
    std::atomic<bool> paused;      // by the owner or by SIGUSR1: alive, but silent or deaf
    std::atomic<PeerPhase> phase;  // the peer's, as all below
    std::atomic<std::uint32_t> connections;       // that stand
    std::atomic<std::uint32_t> connections_made;  // ever
    LinkCounters link;
    TsCounters received;
};

}  // namespace sim
