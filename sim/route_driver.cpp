#include "sim/route_driver.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#include "sim/system_error.h"

namespace sim {
namespace {

constexpr const char *kCommandDevice = "/dev/rt_cmd";
constexpr const char *kReportDevice = "/dev/rt_stat";
constexpr const char *kCommandStart = "service ";
constexpr int kStopCheckMs = 20;

FileDescriptor makeCommandPipe() {
    check(mkfifo(kCommandDevice, 0666), std::string("make ") + kCommandDevice);
    // Open for writing too: the pipe then never reports that its writers have gone.
    FileDescriptor pipe(open(kCommandDevice, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    check(pipe.get(), std::string("open ") + kCommandDevice);
    return pipe;
}

bool activates(const RouteCommand &command) {
    return command.bytes.find(" active=1 ") != std::string::npos;
}

}  // namespace

RouteDriver::RouteDriver(std::filesystem::path report_file)
    : report(std::move(report_file)), command_pipe(makeCommandPipe()) {
    showRoute(false);
    if (report != kReportDevice) {
        std::filesystem::create_symlink(report, kReportDevice);
    }
    thread = std::thread([this] { run(); });
}

RouteDriver::~RouteDriver() {
    stop = true;
    thread.join();
    std::remove(kCommandDevice);
    std::remove(kReportDevice);
}

void RouteDriver::showRoute(bool is_up) {
    const std::string whole = report.string() + ".new";
    std::ofstream(whole, std::ios::trunc)
        << "[0000] active=1 ethdev=eth0 rttype=eth\n"
        << (is_up ? "[0003] active=1 ethdev=eth1 rttype=usr\n" : "");
    std::filesystem::rename(whole, report);
}

std::vector<RouteCommand> RouteDriver::commands() const {
    const std::lock_guard lock(mutex);
    return received;
}

int RouteDriver::routeUps() const {
    const auto all = commands();
    return static_cast<int>(std::count_if(all.begin(), all.end(), activates));
}

int RouteDriver::routeDowns() const {
    return static_cast<int>(commands().size()) - routeUps();
}

void RouteDriver::run() {
    std::array<char, 4096> bytes{};
    pollfd waiting{command_pipe.get(), POLLIN, 0};
    while (!stop) {
        poll(&waiting, 1, kStopCheckMs);
        const ssize_t count = read(command_pipe.get(), bytes.data(), bytes.size());
        if (count > 0) {
            take({bytes.data(), static_cast<std::size_t>(count)});
        }
    }
}

// One read may bring several commands; each begins with the same word.
void RouteDriver::take(const std::string &bytes) {
    for (std::size_t at = 0, next = 0; at < bytes.size(); at = next) {
        next = std::min(bytes.find(kCommandStart, at + 1), bytes.size());
        const RouteCommand command{bytes.substr(at, next - at), std::chrono::steady_clock::now()};
        if (follows_commands) {
            showRoute(activates(command));
        }
        const std::lock_guard lock(mutex);
        received.push_back(command);
    }
}

}  // namespace sim
