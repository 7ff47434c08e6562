#include "device/route_device.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include "core/shared/call_limit.h"
#include "core/shared/system_log.h"
#include "device/device_text.h"

namespace {

constexpr const char *kCommandPath = "/dev/rt_cmd";
constexpr const char *kReportPath = "/dev/rt_stat";
constexpr std::string_view kReportedRoute = "[0003]";

// The driver reads these to the letter, doubled keys and blanks included. It wants the
// NUL behind route-up and none behind route-down.
constexpr std::string_view kRouteUp{
    " active=1 cbr=0 drop=all add=all ethdev=eth1 ipdaddr=0.0.0.0 udpdport=2000 fpkts=7 "
    "rttype=usr cbr=0 ipttl=7 iptos=0  rtp=0 fpkts=7\0",
    131};
static_assert(kRouteUp.back() == '\0');
constexpr std::string_view kRouteDown =
    " active=0 cbr=0 pat=0 drop=all ethdev=eth1 ethsrc=00:00:00:00:00:00 "
    "ethdst=00:00:00:00:00:00 ipsaddr=0.0.0.0 ipdaddr=0.0.0.0 udpsport=2000 udpdport=2000 "
    "fpkts=7 rttype=eth";
static_assert(kRouteDown.size() == 171);

enum class sent_t { whole, partly, no_driver };

// Takes no memory from the heap: the route has to go down in a process that has none left.
sent_t sendCommand(int number, std::string_view text) {
    std::array<char, 256> command{};
    const int head = snprintf(command.data(), command.size(), "service %d", number);
    char *const end = std::copy(text.begin(), text.end(), command.begin() + head);
    const ssize_t length = end - command.begin();
    const CallLimit limit;
    const int fd = open(kCommandPath, O_WRONLY | O_CLOEXEC);
    if (fd == -1) {
        return sent_t::no_driver;
    }
    const ssize_t written = write(fd, command.data(), static_cast<std::size_t>(length));
    const bool silent = written == -1 && errno == EINTR;
    close(fd);
    if (silent) {
        return sent_t::no_driver;
    }
    return written == length ? sent_t::whole : sent_t::partly;
}

}  // namespace

RouteDevice::RouteDevice(int number) : route_number(number) {
    sendRouteUp();
}

RouteDevice::~RouteDevice() {
    if (sendCommand(route_number, kRouteDown) == sent_t::partly) {
        puts("Write error2");
    }
}

std::string RouteDevice::ingressPath() const {
    return "/dev/rt_ingress" + std::to_string(route_number + 1);
}

void RouteDevice::ensureRoute() const {
    std::istringstream report(readDevice(kReportPath, text_end_t::file).value_or(""));
    for (std::string line; std::getline(report, line);) {
        if (line.starts_with(kReportedRoute)) {
            return;
        }
    }
    sendRouteUp();
}

void RouteDevice::sendRouteUp() const {
    switch (sendCommand(route_number, kRouteUp)) {
    case sent_t::no_driver:
        puts("encoder not on this plat");
        break;
    case sent_t::partly:
        puts("Write error");
        throw 1;
    case sent_t::whole:
        systemLog(LOG_INFO, "Updating route %d", route_number);
        break;
    }
}
