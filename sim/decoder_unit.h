// A decoder at the desk: two live senders, the backup's stream encrypted, the daemon, the
// unit's input on port 9261.
#pragma once

#include "sim/simulated_unit.h"
#include "sim/srt_sender.h"
#include "sim/udp_sink.h"

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
    SrtSender primary{kPrimaryPort};
    SrtSender backup{
        SenderOptions{{.port = kBackupPort, .passphrase = "a-desk-secret", .pbkeylen = 16}}};
    UdpSink input;
};

}  // namespace sim
