#include "device/audio_levels.h"

#include <chrono>
#include <cstdio>
#include <optional>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "core/shared/call_limit.h"
#include "device/device_text.h"

namespace {

constexpr const char *kLinePath = "/dev/audiolevels";
constexpr const char *kDevicePath = "/dev/proxyimg";
constexpr unsigned long kStartReading = 0x20007005;
constexpr unsigned long kReadLevel = 0x20007006;
constexpr int kAllChannels = 255;
constexpr useconds_t kBetweenReads = 62;  // the device delivers the next channel meanwhile
constexpr auto kNeverDelivered = static_cast<std::int32_t>(0xAAAAAAAA);

}  // namespace

std::string audioLevels() {
    const std::optional<std::string> line = readDevice(kLinePath, text_end_t::line);
    return line ? std::string("[").append(*line, 0, line->find('\n')).append("]")
                : readProxyLevels();
}

std::string readProxyLevels() {
    std::array<std::int32_t, kAudioChannels> levels{};
    const CallLimit limit;
    const int descriptor = open(kDevicePath, O_RDWR | O_CLOEXEC);
    if (descriptor == -1) {
        printf("Failed to open proxy image device(%d)", descriptor);
        return levelsText(levels);
    }
    const auto end_of_patience = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    ioctl(descriptor, kStartReading, kAllChannels);
    levels.fill(kNeverDelivered);
    for (std::size_t read = 0;
         read < kAudioChannels && std::chrono::steady_clock::now() < end_of_patience; ++read) {
        usleep(kBetweenReads);
        std::int32_t level = 0;
        const std::size_t channel = readAudioLevel(descriptor, level);
        levels[channel] = level;
    }
    if (close(descriptor) != 0) {
        printf("Warning, Failed to close proxy image device(%d)", descriptor);
    }
    return levelsText(levels);
}

std::size_t readAudioLevel(int descriptor, std::int32_t &level) {
    std::uint32_t word = 0;
    if (ioctl(descriptor, kReadLevel, &word) != 0) {
        printf("Failed audio IO call");
        level = 0;
        return 0;
    }
    const AudioLevel decoded = decodeLevelWord(word);
    level = decoded.level;
    return decoded.channel;
}

AudioLevel decodeLevelWord(std::uint32_t word) {
    return {.channel = word >> 28, .level = static_cast<std::int32_t>((word >> 4) & 0xFFFFF)};
}

std::string levelsText(const std::array<std::int32_t, kAudioChannels> &levels) {
    std::string text;
    for (const std::int32_t level : levels) {
        text += text.empty() ? "[" : ",";
        text += std::to_string(level);
    }
    return text + "]";
}
