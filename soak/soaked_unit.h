// A unit whose far ends and neighbours a soak run breaks: the two families behind one face.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/srt_peer.h"

// Requires: the sandbox.
// Threads:  the main thread only.
class SoakedUnit {
public:
    SoakedUnit() = default;
    virtual ~SoakedUnit() = default;
    SoakedUnit(const SoakedUnit &) = delete;
    SoakedUnit &operator=(const SoakedUnit &) = delete;

    // PRODUCT for the daemon.
    [[nodiscard]] virtual std::optional<std::string> product() const = 0;
    // Addresses that the daemon may be given: callers and listeners, plain and with
    // everything that the family has.
    [[nodiscard]] virtual std::vector<std::string> addresses() const = 0;
    // In the addresses' order.
    [[nodiscard]] virtual std::vector<sim::SrtPeer *> farEnds() = 0;

    // CLOCK_MONOTONIC when the last piece of stream arrived behind the daemon; 0: never.
    [[nodiscard]] virtual std::uint64_t lastArrivalNs() const = 0;
    // What has arrived and is not what was sent: foreign bytes and broken packets.
    [[nodiscard]] virtual std::uint64_t damage() const = 0;

    // The other side of the daemon, the one that is not SRT, goes away and comes back.
    virtual void loseNeighbour() = 0;
    virtual void bringNeighbourBack() = 0;
};
