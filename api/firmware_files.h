// Firmware files on the unit's own disk, and what their names may look like.
//
// A firmware file is a shell script that this process starts and leaves running. Its name
// is "tidewell-", the platform word, and a version.
#pragma once

#include <string>
#include <string_view>
#include <vector>

inline constexpr const char *kFirmwareDirectory = "/media/hd0/media/";
inline constexpr std::string_view kFirmwarePrefix = "tidewell-";

// Which of the firmware files are this unit's: ZOLVA_PLATFORM, or "fennel" if that is unset.
std::string firmwarePlatform();

// A name goes into a path and into a shell command, and what it names is run: kFirmwarePrefix,
// then letters, digits and ._+~-, at most 200 characters.
bool isFirmwareName(std::string_view name);

bool isFirmwareFile(const std::string &path);

// The names in `directory` that begin with `prefix`, the highest version first.
std::vector<std::string> localFirmware(const std::string &directory, const std::string &prefix);

// Removes all firmware files, of every platform, but those whose names begin with
// `keep_name`. Requires: `directory` ends in a slash.
void pruneFirmware(const std::string &keep_name, const std::string &directory);
