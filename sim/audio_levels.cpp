#include "sim/audio_levels.h"

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>

namespace sim {
namespace {

constexpr const char *kDevice = "/dev/audiolevels";
constexpr const char *kNewDevice = "/dev/audiolevels.new";
constexpr int kChannels = 16;
constexpr double kFullScale = 66000;  // of the page; the device has twenty bits
constexpr std::chrono::milliseconds kStep{100};

std::string lineAt(int step) {
    std::string line;
    for (int channel = 0; channel < kChannels; ++channel) {
        const double wave = std::sin(0.2 * step + 0.4 * channel);
        line += std::to_string(static_cast<long>(kFullScale * (0.5 + 0.4 * wave)));
        line += channel + 1 < kChannels ? ',' : '\n';
    }
    return line;
}

}  // namespace

AudioLevels::AudioLevels() {
    replace(lineAt(0));
    thread = std::thread([this] { run(); });
}

AudioLevels::~AudioLevels() {
    stop = true;
    thread.join();
    std::filesystem::remove(kDevice);
}

void AudioLevels::setLine(const std::string &text) {
    const std::lock_guard lock(mutex);
    is_set = true;
    replace(text);
}

void AudioLevels::run() {
    for (int step = 0; !stop; ++step) {
        {
            const std::lock_guard lock(mutex);
            if (is_set) {
                return;
            }
            replace(lineAt(step));
        }
        std::this_thread::sleep_for(kStep);
    }
}

// A reader sees the old line or the new one, never half of one.
void AudioLevels::replace(const std::string &text) {
    std::ofstream(kNewDevice, std::ios::binary | std::ios::trunc) << text;
    std::filesystem::rename(kNewDevice, kDevice);
}

}  // namespace sim
