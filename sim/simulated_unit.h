// A whole unit at the desk: the daemon, two far ends, what the hardware supplies, and the
// servers around it with thumbnails and a firmware file.
// Base of the two families.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "sim/audio_levels.h"
#include "sim/daemon.h"
#include "sim/srt_peer.h"
#include "sim/ts_counters.h"
#include "sim/web_server.h"

namespace sim {

inline constexpr std::uint16_t kPrimaryPort = 5000;
inline constexpr std::uint16_t kBackupPort = 5001;

struct UnitOptions {
    std::filesystem::path daemon;  // the executable
    std::filesystem::path
        directory;  // this session's own, for settings and output; reachable outside
};

// A command to paste into a second terminal and what it does.
struct Hint {
    std::string command;
    std::string effect;
};

// Requires: the sandbox.
// Threads:  the main thread only.
// Errors:   std::exception if a part of the unit cannot be had.
class SimulatedUnit {
public:
    virtual ~SimulatedUnit();  // removes the files
    SimulatedUnit(const SimulatedUnit &) = delete;
    SimulatedUnit &operator=(const SimulatedUnit &) = delete;

    // `page` is the address outside; empty if there is none.
    [[nodiscard]] virtual std::vector<Hint> hints(const std::string &page) const = 0;
    [[nodiscard]] virtual std::string status() const = 0;
    // What the signal to this program does to the unit's hardware; a sentence about it.
    virtual std::string turnSwitch() { return "This family has no such switch."; }
    // What has happened since the last call, in sentences. A reboot that was asked for is
    // carried out here: the daemon ends and starts again.
    std::vector<std::string> news();
    // Brings back what has ended.
    void revive();
    // Ends the daemon, while what surrounds it still stands. A derived class calls it
    // before its members go.
    void stopDaemon();

    [[nodiscard]] const Daemon &daemon() const { return *process; }

protected:
    explicit SimulatedUnit(const UnitOptions &unit_options);

    // Starts the daemon, and from then on tells of its end and of the far ends'.
    void run(SrtPeer &primary, SrtPeer &backup, DaemonOptions settings);
    void addNews(const std::string &sentence) { unread_news.push_back(sentence); }
    [[nodiscard]] const std::filesystem::path &directory() const { return options.directory; }
    [[nodiscard]] std::filesystem::path configFile() const { return directory() / "proxy.cfg"; }
    // Hints that both families share.
    [[nodiscard]] std::vector<Hint> commonHints(const std::string &page) const;
    // Family's own news, asked for at each news().
    virtual void lookForNews() {}

private:
    struct FarEnd {
        std::string name;
        SrtPeer *peer;
        bool was_running;
        bool was_paused;
    };

    void lookAt(FarEnd &far_end);
    void lookAtDaemon();
    void lookAtCommands();
    void startDaemonAgain();

    const UnitOptions options;
    AudioLevels levels;
    WebServer web;
    DaemonOptions daemon_options;  // as of the first start
    std::vector<FarEnd> far_ends;
    std::unique_ptr<Daemon> process;
    bool daemon_was_running = false;
    std::size_t commands_seen = 0;
    std::vector<std::string> unread_news;
};

// The living line's words for `counters`, of which `link` is the connection in use.
std::string describeStream(const std::string &address, const TsCounters &counters,
                           const LinkCounters &link, bool with_retransmitted);

// Whether data came within the last second.
bool isFlowing(const TsCounters &counters);

}  // namespace sim
