// The real executable under test, with the surroundings that a unit would give it.
//
// Requires: the sandbox, since the product writes to fixed places and binds fixed ports.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/child_process.h"
#include "sim/wait_until.h"

namespace sim {

// Where daemons keep their output unless told otherwise: "daemon-N.out" and ".err" of
// the N-th one that this process started.
inline constexpr const char *kDaemonOutputDirectory = "/dev/shm";

struct DaemonOptions {
    std::string primary = {};  // addresses for the settings file; empty: disabled
    std::string backup = {};
    std::optional<std::string> config = {};   // the settings file's text in place of the two
    std::optional<std::string> product = {};  // PRODUCT; absent: unset, a decoder
    std::vector<std::string> env = {};        // "NAME=value", before everything set here
    std::filesystem::path config_file = "/etc/sysconfig/proxy.cfg";  // written, named by PROXY_CFG
    bool write_config = true;  // false: neither the file nor PROXY_CFG
    std::filesystem::path output_directory = kDaemonOutputDirectory;
    std::filesystem::path binary = {};       // empty: TIDEWELL_BINARY, or the build's own
    bool real_time = false;                  // keeps CAP_SYS_NICE
    std::function<void()> before_exec = {};  // as in ProcessOptions
};

// The settings file's text for two addresses; an empty one is disabled.
std::string configDocument(const std::string &primary, const std::string &backup);

// Threads: one.
// Errors:  std::system_error if the process or its files cannot be made.
class Daemon {
public:
    explicit Daemon(const DaemonOptions &options);
    ~Daemon();  // stops it, and kills it where that does not help
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    [[nodiscard]] pid_t pid() const { return process.pid(); }
    bool isRunning() { return process.isRunning(); }
    void signal(int which) { process.signal(which); }
    // Asks it to stop and waits. The exit status; minus the signal's number if one
    // ended it, which is -9 if it was still there at the limit.
    int stop(std::chrono::milliseconds limit = kDefaultLimit);
    // Waits for it to end by itself: the exit status, or nothing at the limit.
    std::optional<int> waitForEnd(std::chrono::milliseconds limit = kDefaultLimit);
    // Replaces the settings file, as an operator's editor would; raises no flag.
    void writeConfig(const std::string &text);

    [[nodiscard]] std::string standardOutput() const;
    [[nodiscard]] std::string standardError() const;
    [[nodiscard]] const std::filesystem::path &outputFile() const { return out_file; }
    [[nodiscard]] const std::filesystem::path &errorFile() const { return err_file; }
    // Its standard output's lines without the time of those that have one, a '|' behind each.
    [[nodiscard]] std::string said() const;
    // Whole lines, of both outputs together, that contain `text`.
    [[nodiscard]] int countLines(const std::string &text) const;
    // Waits until `times` such lines have come since the start.
    bool waitForLine(const std::string &text, int times = 1,
                     std::chrono::milliseconds limit = kDefaultLimit);

    // From /proc; -1 if it has ended.
    [[nodiscard]] int descriptors() const;
    [[nodiscard]] int threads() const;
    [[nodiscard]] long residentKb() const;

private:
    // Of /proc/PID/status, as a number.
    [[nodiscard]] long statusValue(const std::string &key) const;

    const std::filesystem::path config_file;
    const int number;  // counts the daemons of this process
    const std::filesystem::path out_file;
    const std::filesystem::path err_file;
    ChildProcess process;
};

}  // namespace sim
