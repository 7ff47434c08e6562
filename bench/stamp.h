// What a far end writes into each payload, so that the other end can tell what is
// missing and how long the way took. Both ends are in this process and share a clock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bench {

inline constexpr std::size_t kPayloadBytes = 1316;
using Payload = std::array<char, kPayloadBytes>;

struct Stamp {
    std::uint64_t sequence = 0;  // from 0, one more with each payload
    std::uint64_t sent_ns = 0;   // CLOCK_MONOTONIC
};

inline void putStamp(Payload &payload, const Stamp &stamp) {
    std::memcpy(payload.data(), &stamp, sizeof stamp);
}

// Requires: `message` holds at least a stamp.
inline Stamp getStamp(const char *message) {
    Stamp stamp;
    std::memcpy(&stamp, message, sizeof stamp);
    return stamp;
}

}  // namespace bench
