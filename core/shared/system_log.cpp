#include "core/shared/system_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr const char *kIdentity = "tidewell";
constexpr const char *kLogger = "/dev/log";
constexpr std::size_t kMessageBytes = 2048;

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
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        return;
    }
    sockaddr_un logger{};
    logger.sun_family = AF_UNIX;
    strcpy(logger.sun_path, kLogger);
    sendto(fd, line, static_cast<std::size_t>(length), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&logger), sizeof logger);
    close(fd);
}

}  // namespace

void systemLog(int priority, const char *format, ...) {
    char message[kMessageBytes];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    sendToLogger(priority, message);
    const std::size_t length = strlen(message);
    const bool ends_line = length > 0 && message[length - 1] == '\n';
    fprintf(stderr, "%s: %s%s", kIdentity, message, ends_line ? "" : "\n");
}
