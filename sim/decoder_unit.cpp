#include "sim/decoder_unit.h"

namespace sim {

DecoderUnit::DecoderUnit(const UnitOptions &unit_options) : SimulatedUnit(unit_options) {
    run(primary, backup, {.product = "WQ-1"});
}

std::vector<Hint> DecoderUnit::hints(const std::string &page) const {
    std::vector<Hint> all = {{"kill -USR1 " + std::to_string(primary.pid()),
                              "the primary falls silent; once more, and it goes on"}};
    for (Hint &hint : commonHints(page)) {
        all.push_back(std::move(hint));
    }
    return all;
}

std::string DecoderUnit::status() const {
    const TsCounters &received = input.received();
    const bool from_backup = input.lastSource() == backup.id();
    const SrtSender &sender = from_backup ? backup : primary;
    if (!isFlowing(received)) {
        return describeStream("no stream", received, sender.link(), false);
    }
    return describeStream(from_backup ? "backup  127.0.0.1:5001" : "primary 127.0.0.1:5000",
                          received, sender.link(), false);
}

}  // namespace sim
