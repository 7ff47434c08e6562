#include "config/config_file.h"

#include <cerrno>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Takes the room for `size` bytes, so that the write that follows cannot run out of
// disk half way. Gives the added room back if there is not enough. What is no regular
// file has no room to reserve.
bool reserveRoom(int fd, off_t size) {
    struct stat before {};
    if (size == 0 || fstat(fd, &before) == -1 || !S_ISREG(before.st_mode)) {
        return true;
    }
    const int error = posix_fallocate(fd, 0, size);
    if (error == ENOSPC || error == EDQUOT || error == EFBIG) {
        [[maybe_unused]] const int shrunk = ftruncate(fd, before.st_size);
        return false;
    }
    return true;
}

// Until the cut, old bytes may stand behind the new document; a reader stops at the
// end of the first JSON value and does not see them.
bool overwrite(int fd, const std::string &text) {
    const auto size = static_cast<off_t>(text.size());
    if (!reserveRoom(fd, size)) {
        return false;
    }
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        return false;
    }
    return ftruncate(fd, size) == 0 || errno == EINVAL;  // EINVAL: not a regular file
}

}  // namespace

std::optional<std::string> readConfigFile(const std::string &path) {
    std::ifstream file(path);
    if (!file.is_open()) {
        return std::nullopt;
    }
    std::string text;
    char block[4096];
    while (file.read(block, sizeof block)) {
        text.append(block, sizeof block);
    }
    text.append(block, static_cast<std::size_t>(file.gcount()));
    if (!file.eof()) {
        return std::nullopt;
    }
    return text;
}

bool writeConfigFile(const std::string &path, const std::string &text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd == -1) {
        return false;
    }
    const bool written = overwrite(fd, text);
    return close(fd) == 0 && written;
}
