// The encoder's hardware route: /dev/rt_cmd, /dev/rt_stat and /dev/rt_ingress4.
//
// rt_cmd is a FIFO whose reading end stays open, so that a command is never refused.
// rt_stat is a file that is replaced as a whole. The ingress is RouteIngress.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/file_descriptor.h"

namespace sim {

struct RouteCommand {
    std::string bytes;  // as written, a NUL at the end included
    std::chrono::steady_clock::time_point arrival;
};

// Requires: the sandbox. Makes the two devices and removes them again.
// Threads:  one of its own reads commands; any may ask.
// Errors:   std::system_error.
class RouteDriver {
public:
    // `report_file` is what /dev/rt_stat leads to, where that is to be edited from
    // outside the sandbox.
    explicit RouteDriver(std::filesystem::path report_file = "/dev/rt_stat");
    ~RouteDriver();
    RouteDriver(const RouteDriver &) = delete;
    RouteDriver &operator=(const RouteDriver &) = delete;

    // The report with the line of route 3, as long as the route stands, or without it.
    // Commands do not change the report by themselves unless followCommands() is on.
    void showRoute(bool is_up);
    // On: a route-up command brings the report's line, a route-down takes it away.
    void followCommands(bool on) { follows_commands = on; }

    [[nodiscard]] std::vector<RouteCommand> commands() const;
    // Those that bring the route up, and those that take it down.
    [[nodiscard]] int routeUps() const;
    [[nodiscard]] int routeDowns() const;

private:
    void run();
    void take(const std::string &bytes);

    const std::filesystem::path report;  // what showRoute() writes
    FileDescriptor command_pipe;
    mutable std::mutex mutex;
    std::vector<RouteCommand> received;  // guarded by mutex
    std::atomic<bool> follows_commands{false};
    std::atomic<bool> stop{false};
    std::thread thread;
};

}  // namespace sim
