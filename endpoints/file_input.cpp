#include "endpoints/file_input.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "core/shared/call_limit.h"
#include "core/shared/shared_words.h"
#include "endpoints/payload.h"
#include "endpoints/results.h"

namespace {

constexpr useconds_t kNothingPauseUs = 400;

// Some drivers keep the opener waiting; a stop ends that.
int openDevice(const std::string &path) {
    const CallLimit limit;
    int fd = -1;
    do {
        fd = open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
    } while (fd == -1 && errno == EINTR && stop_flag == 0);
    return fd;
}

}  // namespace

file_input_t::file_input_t(const std::string &device_path) : fd(openDevice(device_path)) {
    if (fd == -1) {
        if (stop_flag != 0) {
            throw 1;
        }
        fprintf(stderr, "file not found: %s", device_path.c_str());
        throw 1;
    }
}

file_input_t::~file_input_t() {
    if (fd >= 0) {
        close(fd);
    }
    fd = -1;
}

// The pause after a read that gave nothing leaves the core to others: the pump asks again
// at top priority.
ssize_t file_input_t::read(char *buffer, std::size_t length) {
    if (fd < 1) {
        return kFailed;
    }
    const ssize_t bytes = ::read(fd, buffer, length / kPayloadBytes * kPayloadBytes);
    if (bytes < 1) {
        usleep(kNothingPauseUs);
        return kNothingDone;
    }
    return bytes;
}
