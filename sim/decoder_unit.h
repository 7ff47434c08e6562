// A decoder at the desk: two live senders, the daemon, the unit's input on port 9261,
// and the audio levels and pictures that its page shows.
#pragma once

#include "sim/audio_levels.h"
#include "sim/simulated_unit.h"
#include "sim/srt_sender.h"
#include "sim/udp_sink.h"
#include "sim/web_server.h"

namespace sim {

class DecoderUnit : public SimulatedUnit {
public:
    explicit DecoderUnit(const UnitOptions &unit_options);
    ~DecoderUnit() override { stopDaemon(); }
    DecoderUnit(const DecoderUnit &) = delete;
    DecoderUnit &operator=(const DecoderUnit &) = delete;

    [[nodiscard]] std::vector<Hint> hints(const std::string &page) const override;
    [[nodiscard]] std::string status() const override;

private:
    AudioLevels levels;
    WebServer web;
    SrtSender primary{kPrimaryPort};
    SrtSender backup{kBackupPort};
    UdpSink input;
};

}  // namespace sim
