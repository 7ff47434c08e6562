#include "api/firmware_files.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLongestName = 200;

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("._+~-").find(c) != std::string_view::npos;
}

// Everything in the directory, the highest version first. Empty, and said so on stderr, if
// it cannot be read.
std::vector<std::string> versionsDescending(const std::string &directory) {
    dirent **entries = nullptr;
    const int count = scandir(directory.c_str(), &entries, nullptr, versionsort);
    if (count == -1) {
        perror("scandir");
        return {};
    }
    std::vector<std::string> names;
    for (int i = count - 1; i >= 0; --i) {
        names.emplace_back(entries[i]->d_name);
        free(entries[i]);
    }
    free(entries);
    return names;
}

}  // namespace

std::string firmwarePlatform() {
    const char *platform = getenv("ZOLVA_PLATFORM");
    return platform != nullptr ? platform : "fennel";
}

bool isFirmwareName(std::string_view name) {
    return name.starts_with(kFirmwarePrefix) && name.size() <= kLongestName &&
           std::all_of(name.begin(), name.end(), isNameCharacter);
}

bool isFirmwareFile(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::vector<std::string> localFirmware(const std::string &directory, const std::string &prefix) {
    std::vector<std::string> names = versionsDescending(directory);
    std::erase_if(names, [&](const std::string &name) { return !name.starts_with(prefix); });
    return names;
}

void pruneFirmware(const std::string &keep_name, const std::string &directory) {
    for (const std::string &name : versionsDescending(directory)) {
        if (name.starts_with(kFirmwarePrefix) && !name.starts_with(keep_name)) {
            unlink((directory + name).c_str());
        }
    }
}
