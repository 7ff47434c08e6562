#include "device/device_text.h"

#include <chrono>

#include <fcntl.h>
#include <unistd.h>

#include "core/shared/call_limit.h"

namespace {

constexpr std::size_t kLongestText = std::size_t{64} * 1024;

}  // namespace

std::optional<std::string> readDevice(const char *path, text_end_t end) {
    const CallLimit limit;
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) {
        return std::nullopt;
    }
    const auto end_of_patience = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    std::string text;
    char block[4096];
    ssize_t count = 0;
    do {
        count = read(fd, block, sizeof block);
        text.append(block, static_cast<std::size_t>(count > 0 ? count : 0));
    } while (count > 0 && text.size() < kLongestText &&
             std::chrono::steady_clock::now() < end_of_patience &&
             (end == text_end_t::file || text.find('\n') == std::string::npos));
    close(fd);
    return text;
}
