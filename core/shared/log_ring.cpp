#include "core/shared/log_ring.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/shared/system_log.h"

namespace {

constexpr const char *kLogPath = "/tmp/proxy.log";
constexpr const char *kNewLogPath = "/tmp/proxy.log.new";
constexpr std::size_t kLineBytes = 1024;

// Puts the local time before `text`. Returns the line's length, below 1 if there
// is nothing to log.
int formatLine(char (&line)[kLineBytes], const char *text) {
    const time_t now = time(nullptr);
    struct tm local {};
    if (localtime_r(&now, &local) == nullptr) {
        return snprintf(line, sizeof line, "%s", text);
    }
    char prefix[17];
    if (strftime(prefix, sizeof prefix, "%h %e %T ", &local) == 0) {
        prefix[0] = '\0';
    }
    return snprintf(line, sizeof line, "%s: %s", prefix, text);
}

// /tmp is open to everybody: what somebody planted under the name is removed, never written
// through; a directory with something in it is put aside.
void clearNewLogName() {
    if (remove(kNewLogPath) == -1 && errno == ENOTEMPTY) {
        char aside[] = "/tmp/proxy.log.aside.XXXXXX";
        if (mkdtemp(aside) != nullptr) {
            rename(kNewLogPath, aside);
        }
    }
}

FILE *createNewLog() {
    clearNewLogName();
    const int fd = open(kNewLogPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd == -1) {
        return nullptr;
    }
    FILE *file = fdopen(fd, "w");
    if (file == nullptr) {
        close(fd);
    }
    return file;
}

}  // namespace

LogRing::LogRing(std::size_t line_count) : lines(line_count) {}

void LogRing::logLine(const char *text) {
    systemLog(LOG_INFO, "%s", text);
    char line[kLineBytes];
    if (formatLine(line, text) < 1) {
        return;
    }
    printf("%s", line);
    const MutexLock lock(mutex);
    try {
        lines.push_back(line);
    } catch (const std::bad_alloc &) {
        return;  // the event has reached syslog and stdout
    }
    writeFile();
}

void LogRing::logPrintf(const char *format, ...) {
    char text[kLineBytes];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    logLine(text);
}

// A reader of the log gets the old text or the new one, never half of it: the text
// goes to a file of its own, which then takes the log's name.
void LogRing::writeFile() const {
    FILE *file = createNewLog();
    if (file == nullptr) {
        return;
    }
    bool written = true;
    for (const std::string &line : lines) {
        written = fputs(line.c_str(), file) != EOF && written;
    }
    written = fclose(file) == 0 && written;
    if (!written || rename(kNewLogPath, kLogPath) == -1) {
        unlink(kNewLogPath);
    }
}
