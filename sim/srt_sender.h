// Sends a transport stream to the product: the far end of a decoder.
#pragma once

#include "sim/srt_peer.h"

namespace sim {

struct SenderOptions : PeerOptions {
    std::uint64_t rate_bps = 4'000'000;
    std::size_t message_bytes = kMessageBytes;  // at most 1456
    std::uint32_t source_id = kNoSource;        // below kSourceCount; otherwise the port's low bits
};

// The stream stands still while nobody is connected, so that the sequence has no gap
// but those that a connection made. restart() begins a new sequence.
class SrtSender : public SrtPeer {
public:
    explicit SrtSender(const SenderOptions &options) : SrtPeer(PeerRole::sender, options) {
        state->settings.rate_bps = options.rate_bps;
        state->settings.message_bytes = options.message_bytes;
        state->settings.source_id =
            options.source_id < kSourceCount ? options.source_id : options.port % kSourceCount;
        start();
    }
    // A listener on this port of the loopback.
    explicit SrtSender(std::uint16_t port) : SrtSender(onPort(port)) {}

    // Tells this source's packets apart at the other end: the index in TsCounters.
    [[nodiscard]] std::uint32_t id() const { return state->settings.source_id; }

private:
    static SenderOptions onPort(std::uint16_t port) {
        SenderOptions options;
        options.port = port;
        return options;
    }
};

}  // namespace sim
