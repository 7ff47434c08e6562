// An encoder: the route driver on the one side, receivers on the other.
#pragma once

#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/srt_receiver.h"
#include "soak/soaked_unit.h"

class SoakedEncoder : public SoakedUnit {
public:
    SoakedEncoder() { driver.followCommands(true); }

    [[nodiscard]] std::optional<std::string> product() const override { return "WX-1"; }
    [[nodiscard]] std::vector<std::string> addresses() const override;
    [[nodiscard]] std::vector<sim::SrtPeer *> farEnds() override;
    [[nodiscard]] std::uint64_t lastArrivalNs() const override;
    [[nodiscard]] std::uint64_t damage() const override;
    // The device ends and the route goes; the daemon has to ask for the route again.
    void loseNeighbour() override;
    void bringNeighbourBack() override;

private:
    sim::RouteDriver driver;
    sim::RouteIngress device;
    sim::SrtReceiver called{5000};
    sim::SrtReceiver called_with_id{{.port = 5001, .stream_id = "soak"}};
    sim::SrtReceiver caller{{.port = 5002, .mode = sim::PeerMode::caller}};
    sim::SrtReceiver caller_with_id{
        {.port = 5003, .mode = sim::PeerMode::caller, .stream_id = "soak"}};
};
