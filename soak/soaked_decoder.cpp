#include "soak/soaked_decoder.h"

std::vector<std::string> SoakedDecoder::addresses() const {
    return {called.uri(), called_encrypted.uri("&streamrate=8000000"), caller.uri(),
            caller_with_id.uri()};
}

std::vector<sim::SrtPeer *> SoakedDecoder::farEnds() {
    return {&called, &called_encrypted, &caller, &caller_with_id};
}

std::uint64_t SoakedDecoder::lastArrivalNs() const {
    return input ? input->received().last_arrival_ns.load() : 0;
}

std::uint64_t SoakedDecoder::damage() const {
    std::uint64_t count = damage_before;
    if (input) {
        count += input->received().foreign_bytes;
        for (const sim::SourceCounters &source : input->received().sources) {
            count += source.corrupt;
        }
    }
    return count;
}

void SoakedDecoder::loseNeighbour() {
    damage_before = damage();
    input.reset();
}

void SoakedDecoder::bringNeighbourBack() {
    input = std::make_unique<sim::UdpSink>();
}
