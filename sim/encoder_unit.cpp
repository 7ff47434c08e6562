#include "sim/encoder_unit.h"

#include <unistd.h>

namespace sim {
namespace {

constexpr const char *kReportName = "rt_stat";

}  // namespace

EncoderUnit::EncoderUnit(const UnitOptions &unit_options)
    : SimulatedUnit(unit_options), driver(unit_options.directory / kReportName) {
    driver.followCommands(true);
    run(primary, backup, {.product = "WX-1"});
}

std::vector<Hint> EncoderUnit::hints(const std::string &page) const {
    std::vector<Hint> all = {{"kill -USR1 " + std::to_string(primary.pid()),
                              "the far end takes no more data; once more, and it goes on"},
                             {"kill -USR1 " + std::to_string(getpid()),
                              "the device gives nothing; once more, and it goes on"}};
    if (!page.empty()) {
        all.push_back({"sed -i /0003/d " + (directory() / kReportName).string(),
                       "the route is gone, until the daemon asks for it again"});
    }
    for (Hint &hint : commonHints(page)) {
        all.push_back(std::move(hint));
    }
    return all;
}

std::string EncoderUnit::status() const {
    const bool to_backup = backup.isConnected() && !primary.isConnected();
    const SrtReceiver &far_end = to_backup ? backup : primary;
    if (!far_end.isConnected()) {
        return describeStream("no far end", far_end.received(), far_end.link(), true);
    }
    return describeStream(to_backup ? "backup  127.0.0.1:5001" : "primary 127.0.0.1:5000",
                          far_end.received(), far_end.link(), true);
}

std::string EncoderUnit::turnSwitch() {
    device_paused = !device_paused;
    if (device_paused) {
        ingress.pause();
        return "The device gives nothing.";
    }
    ingress.resume();
    return "The device goes on.";
}

void EncoderUnit::lookForNews() {
    const auto commands = driver.commands();
    for (; commands_told < commands.size(); ++commands_told) {
        // Without the NUL that one of the two commands ends in.
        addNews(std::string("Route command: ") + commands[commands_told].bytes.c_str());
    }
}

}  // namespace sim
