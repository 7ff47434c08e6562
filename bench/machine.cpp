#include "bench/machine.h"

#include <array>
#include <ctime>
#include <fstream>
#include <sstream>
#include <thread>

#include <srt/srt.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

namespace bench {
namespace {

std::string processorName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.find(": ");
        if (line.starts_with("model name") && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    return "unknown processor";
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    std::array<char, 32> text{};
    std::tm parts{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d", gmtime_r(&now, &parts));
    return text.data();
}

std::string srtVersion() {
    const std::uint32_t version = srt_getversion();
    std::ostringstream text;
    text << (version >> 16U) << '.' << (version >> 8U & 0xFFU) << '.' << (version & 0xFFU);
    return text.str();
}

}  // namespace

std::string describeMachine() {
    utsname kernel{};
    struct sysinfo memory {};
    uname(&kernel);
    sysinfo(&memory);
    std::ostringstream text;
    text << "Measured on " << today() << ": " << processorName() << ", "
         << std::thread::hardware_concurrency() << " cores, "
         << (memory.totalram * memory.mem_unit >> 30U) << " GiB, " << kernel.sysname << ' '
         << kernel.release << ' ' << kernel.machine << ", libsrt " << srtVersion() << ".\n";
    return text.str();
}

}  // namespace bench
