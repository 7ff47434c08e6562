// The unit's audio levels as the page wants them: the text of a JSON array of 16 numbers.
// Read anew for each request; nothing is kept.
//
// Two generations of drivers exist. The newer one offers finished lines at
// /dev/audiolevels; the older one delivers one channel per ioctl from /dev/proxyimg.
#pragma once

#include <array>
#include <cstdint>
#include <string>

inline constexpr std::size_t kAudioChannels = 16;

// From whichever driver is there; 16 zeros without one. On /dev/proxyimg this takes at
// least a millisecond, and about two seconds where the driver gives no answer. Failures are told on
// stdout only.
std::string audioLevels();

// The same from /dev/proxyimg alone. A channel that no read delivered shows as
// -1431655766.
std::string readProxyLevels();

// Reads one level word from the open device. Returns its channel, 0 to 15, and stores
// its level; both are 0 if the read fails.
std::size_t readAudioLevel(int descriptor, std::int32_t &level);

// The channel and the level in one word of the driver: channel in bits 31 to 28, level in
// bits 23 to 4.
struct AudioLevel {
    std::size_t channel;
    std::int32_t level;
};
AudioLevel decodeLevelWord(std::uint32_t word);

// "[1,2,...]"
std::string levelsText(const std::array<std::int32_t, kAudioChannels> &levels);
