#include "sim/time_namespace.h"

#include <fcntl.h>
#include <sched.h>

#include <cstdint>
#include <string>

#include "sim/file_descriptor.h"
#include "sim/system_error.h"

namespace sim {

void enterTimeNamespace(std::chrono::nanoseconds offset) {
    check(unshare(CLONE_NEWTIME), "make a time namespace");
    const auto seconds = std::chrono::floor<std::chrono::seconds>(offset);
    const std::string line = "monotonic " + std::to_string(seconds.count()) + " " +
                             std::to_string((offset - seconds).count()) + "\n";
    const FileDescriptor offsets(open("/proc/self/timens_offsets", O_WRONLY | O_CLOEXEC));
    check(offsets.get(), "open /proc/self/timens_offsets");
    check(write(offsets.get(), line.data(), line.size()), "shift the monotonic clock");
}

std::chrono::nanoseconds offsetToWrapAfter(std::chrono::milliseconds delay) {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    const auto distance = std::chrono::microseconds(delay) + now;
    const auto low_bits = static_cast<std::uint32_t>(distance.count());
    return std::chrono::microseconds(std::uint32_t{0} - low_bits);
}

}  // namespace sim
