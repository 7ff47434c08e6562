// Receives a transport stream from the product and checks it: the far end of an encoder.
#pragma once

#include "sim/srt_peer.h"

namespace sim {

class SrtReceiver : public SrtPeer {
public:
    explicit SrtReceiver(const PeerOptions &options) : SrtPeer(PeerRole::receiver, options) {
        start();
    }
    // A listener on this port of the loopback.
    explicit SrtReceiver(std::uint16_t port) : SrtReceiver(PeerOptions{.port = port}) {}

    // What arrived since the process started; restart() sets it to zero.
    [[nodiscard]] const TsCounters &received() const { return state->received; }
};

}  // namespace sim
