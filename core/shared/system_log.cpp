#include "core/shared/system_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr const char *kIdentity = "tidewell";
constexpr std::size_t kMessageBytes = 2048;

// -1, and why in errno, if there is no logger of that type, or it has no room for one more.
int connectToLogger(int type) {
    const int fd = socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const sockaddr_un logger{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    if (fd != -1 && connect(fd, reinterpret_cast<const sockaddr *>(&logger), sizeof logger) == -1) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

void sendToLogger(int priority, const char *message) {
    char time_text[32] = "";
    const time_t now = time(nullptr);
    struct tm local {};
    if (localtime_r(&now, &local) != nullptr) {
        strftime(time_text, sizeof time_text, "%h %e %T", &local);
    }
    char line[kMessageBytes + 64];
    const int length = snprintf(line, sizeof line, "<%d>%s %s: %s", LOG_USER | priority, time_text,
                                kIdentity, message);
    int fd = connectToLogger(SOCK_DGRAM);
    std::size_t bytes = static_cast<std::size_t>(length);
    if (fd == -1 && errno == EPROTOTYPE) {  // some loggers take a stream, with NULs between
        fd = connectToLogger(SOCK_STREAM);
        ++bytes;
    }
    if (fd != -1) {
        send(fd, line, bytes, MSG_NOSIGNAL);
        close(fd);
    }
}

}  // namespace

void systemLog(int priority, const char *format, ...) {
    char message[kMessageBytes];
    va_list arguments;
    va_start(arguments, format);
    // The analyzer takes what va_start has just set for unset.
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    sendToLogger(priority, message);
    const std::size_t length = strlen(message);
    const bool ends_line = length > 0 && message[length - 1] == '\n';
    fprintf(stderr, "%s: %s%s", kIdentity, message, ends_line ? "" : "\n");
}
