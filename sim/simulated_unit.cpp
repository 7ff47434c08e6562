#include "sim/simulated_unit.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "sim/clock.h"
#include "sim/sandbox.h"

namespace sim {
namespace {

constexpr std::uint64_t kFlowingNs = 1'000'000'000;
// Offered for update: newer than the daemon says it is, and all it does is reboot.
constexpr const char *kFirmware = "tidewell-fennel-1.0.10.sh";
constexpr const char *kFirmwareScript = "/sbin/shutdown -r now\n";

std::string processText(pid_t pid) {
    return std::to_string(pid);
}

}  // namespace

SimulatedUnit::SimulatedUnit(const UnitOptions &unit_options) : options(unit_options) {
    web.addUpload(kFirmware, kFirmwareScript);
}

SimulatedUnit::~SimulatedUnit() {
    std::error_code ignored;
    std::filesystem::remove_all(directory(), ignored);
    std::filesystem::remove(directory().parent_path(), ignored);  // unless others use it
}

void SimulatedUnit::run(SrtPeer &primary, SrtPeer &backup, DaemonOptions settings) {
    far_ends = {{"primary", &primary, true, false}, {"backup", &backup, true, false}};
    settings.primary = primary.uri();
    settings.backup = backup.uri();
    settings.binary = options.daemon;
    settings.config_file = configFile();
    settings.output_directory = directory();
    daemon_options = settings;
    process = std::make_unique<Daemon>(daemon_options);
    daemon_was_running = true;
    daemon_options.write_config = false;  // a restart keeps the settings as they are then
    daemon_options.env.push_back("PROXY_CFG=" + configFile().string());
}

std::vector<std::string> SimulatedUnit::news() {
    for (FarEnd &far_end : far_ends) {
        lookAt(far_end);
    }
    lookAtDaemon();
    lookAtCommands();
    lookForNews();
    return std::exchange(unread_news, {});
}

void SimulatedUnit::lookAt(FarEnd &far_end) {
    const bool running = far_end.peer->isRunning();
    if (far_end.was_running && !running) {
        addNews("The " + far_end.name + " has gone.");
    }
    const bool paused = far_end.peer->isPaused();
    if (paused != far_end.was_paused) {
        addNews("The " + far_end.name + (paused ? " is paused." : " goes on."));
    }
    far_end.was_running = running;
    far_end.was_paused = paused;
}

void SimulatedUnit::lookAtDaemon() {
    const bool running = process->isRunning();
    if (daemon_was_running && !running) {
        addNews("The daemon has ended with status " + std::to_string(process->stop()) + ".");
    }
    daemon_was_running = running;
}

void SimulatedUnit::lookAtCommands() {
    const std::vector<std::string> commands = recordedCommands();
    for (; commands_seen < commands.size(); ++commands_seen) {
        addNews("Command: " + commands[commands_seen]);
        if (commands[commands_seen].rfind("/sbin/", 0) == 0) {
            stopDaemon();
            startDaemonAgain();
        }
    }
}

void SimulatedUnit::startDaemonAgain() {
    process = std::make_unique<Daemon>(daemon_options);
    daemon_was_running = true;
    addNews("The daemon is back, process " + processText(process->pid()) + ", output in " +
            process->outputFile().string() + " and .err.");
}

void SimulatedUnit::revive() {
    for (FarEnd &far_end : far_ends) {
        if (!far_end.peer->isRunning()) {
            far_end.peer->restart();
            far_end.was_running = true;
            addNews("The " + far_end.name + " is back, process " +
                    processText(far_end.peer->pid()) + ".");
        }
    }
    if (!process->isRunning()) {
        startDaemonAgain();
    }
}

void SimulatedUnit::stopDaemon() {
    if (process) {
        process->stop();
    }
}

std::vector<Hint> SimulatedUnit::commonHints(const std::string &page) const {
    const std::string primary = processText(far_ends[0].peer->pid());
    std::vector<Hint> hints = {
        {"kill " + primary, "the primary closes the connection"},
        {"kill -9 " + primary, "the primary vanishes without a word"},
        {"kill -USR2 " + processText(getpid()), "whatever has ended comes back"},
        {"sed -i s/latency=120/latency=400/ " + configFile().string(),
         "other settings, taken up when a stream is opened next"}};
    if (!page.empty()) {
        hints.push_back(
            {"curl -d @" + configFile().string() + " " + page + "api/cfg/set", "... or at once"});
        hints.push_back(
            {"curl -d '{\"index\":1}' " + page + "api/source/set", "the backup by hand"});
        hints.push_back({"curl -d '{\"update\":\"" + std::string(kFirmware) + "\"}' " + page +
                             "api/firmware/set",
                         "a firmware update, which only reboots the unit"});
    }
    hints.push_back({"kill " + processText(process->pid()), "the daemon stops"});
    return hints;
}

std::string describeStream(const std::string &address, const TsCounters &counters,
                           const LinkCounters &link, bool with_retransmitted) {
    std::uint64_t packets = 0;
    std::uint64_t lost = 0;
    for (const SourceCounters &source : counters.sources) {
        packets += source.packets;
        lost += source.lost;
    }
    const double rate = isFlowing(counters) ? static_cast<double>(counters.rate_bps) / 1e6 : 0;
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(), "%-24s %6.2f Mbit/s  %9llu packets  %llu lost  ",
                  address.c_str(), rate, static_cast<unsigned long long>(packets),
                  static_cast<unsigned long long>(lost));
    std::string line = text.data();
    if (with_retransmitted) {
        line += std::to_string(link.retransmitted) + " retransmitted  ";
    }
    std::snprintf(text.data(), text.size(), "round trip %.2f ms", link.round_trip_ms.load());
    return line + text.data();
}

bool isFlowing(const TsCounters &counters) {
    return counters.messages > 0 && monotonicNs() - counters.last_arrival_ns < kFlowingNs;
}

}  // namespace sim
