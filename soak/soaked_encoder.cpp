#include "soak/soaked_encoder.h"

#include <algorithm>

std::vector<std::string> SoakedEncoder::addresses() const {
    return {called.uri(), called_with_id.uri("&sndbuf=4000000"), caller.uri(),
            caller_with_id.uri("&fc=8192")};
}

std::vector<sim::SrtPeer *> SoakedEncoder::farEnds() {
    return {&called, &called_with_id, &caller, &caller_with_id};
}

std::uint64_t SoakedEncoder::lastArrivalNs() const {
    std::uint64_t last = 0;
    for (const sim::SrtReceiver *far_end : {&called, &called_with_id, &caller, &caller_with_id}) {
        last = std::max(last, far_end->received().last_arrival_ns.load());
    }
    return last;
}

std::uint64_t SoakedEncoder::damage() const {
    std::uint64_t count = 0;
    for (const sim::SrtReceiver *far_end : {&called, &called_with_id, &caller, &caller_with_id}) {
        count += far_end->received().foreign_bytes;
        for (const sim::SourceCounters &source : far_end->received().sources) {
            count += source.corrupt;
        }
    }
    return count;
}

void SoakedEncoder::loseNeighbour() {
    device.end();
    driver.showRoute(false);
}

void SoakedEncoder::bringNeighbourBack() {
    device.comeBack();
}
