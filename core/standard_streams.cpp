#include "core/standard_streams.h"

#include <csignal>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// open() gives the lowest free number, so this ends once 0, 1 and 2 are taken.
void fillClosedDescriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd != -1 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    if (fd != -1) {
        close(fd);
    }
}

// What a write waits for is a reader, not a disk.
bool hasReader(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || isatty(fd) == 1);
}

// O_NONBLOCK belongs to the open file, which the starter may share: where that is possible
// it is opened once more for this process alone. A socket can only be shared, so its other
// users do not wait either, and may undo this.
void neverWaitForReader(int fd) {
    if (!hasReader(fd)) {
        return;
    }
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const int own = open(name.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own != -1) {
        dup2(own, fd);
        close(own);
    } else {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
}

}  // namespace

void prepareStandardStreams() {
    fillClosedDescriptors();
    neverWaitForReader(STDOUT_FILENO);
    neverWaitForReader(STDERR_FILENO);
    signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}
