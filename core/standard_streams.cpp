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

// O_NONBLOCK belongs to the open file, which the starter may share: the pipe is opened
// once more for this process alone.
void neverBlockOnPipe(int fd) {
    struct stat status {};
    if (fstat(fd, &status) == -1 || !S_ISFIFO(status.st_mode)) {
        return;
    }
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const int own = open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own != -1) {
        dup2(own, fd);
        close(own);
    }
}

}  // namespace

void prepareStandardStreams() {
    fillClosedDescriptors();
    neverBlockOnPipe(STDOUT_FILENO);
    neverBlockOnPipe(STDERR_FILENO);
    signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}
