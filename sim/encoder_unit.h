// An encoder at the desk: the route driver with a stream, the daemon, two receivers.
#pragma once

#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/simulated_unit.h"
#include "sim/srt_receiver.h"

namespace sim {

class EncoderUnit : public SimulatedUnit {
public:
    explicit EncoderUnit(const UnitOptions &unit_options);
    ~EncoderUnit() override { stopDaemon(); }
    EncoderUnit(const EncoderUnit &) = delete;
    EncoderUnit &operator=(const EncoderUnit &) = delete;

    [[nodiscard]] std::vector<Hint> hints(const std::string &page) const override;
    [[nodiscard]] std::string status() const override;
    std::string turnSwitch() override;

private:
    void lookForNews() override;

    RouteDriver driver;
    RouteIngress ingress;
    SrtReceiver primary{kPrimaryPort};
    SrtReceiver backup{kBackupPort};
    std::size_t commands_told = 0;
    bool device_paused = false;
};

}  // namespace sim
