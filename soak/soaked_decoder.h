// A decoder: senders on the one side, the unit's UDP input on the other.
#pragma once

#include <memory>

#include "sim/srt_sender.h"
#include "sim/udp_sink.h"
#include "soak/soaked_unit.h"

class SoakedDecoder : public SoakedUnit {
public:
    [[nodiscard]] std::optional<std::string> product() const override { return std::nullopt; }
    [[nodiscard]] std::vector<std::string> addresses() const override;
    [[nodiscard]] std::vector<sim::SrtPeer *> farEnds() override;
    [[nodiscard]] std::uint64_t lastArrivalNs() const override;
    [[nodiscard]] std::uint64_t damage() const override;
    void loseNeighbour() override;
    void bringNeighbourBack() override;

private:
    sim::SrtSender called{5000};
    sim::SrtSender called_encrypted{
        {{.port = 5001, .passphrase = "soak-soak-soak", .pbkeylen = 32}}};
    sim::SrtSender caller{{{.port = 5002, .mode = sim::PeerMode::caller}}};
    sim::SrtSender caller_with_id{
        {{.port = 5003, .mode = sim::PeerMode::caller, .stream_id = "soak"}}};
    std::unique_ptr<sim::UdpSink> input = std::make_unique<sim::UdpSink>();
    std::uint64_t damage_before = 0;  // counted by earlier inputs
};
