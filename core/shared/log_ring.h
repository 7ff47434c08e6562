// The event log: the last lines in memory, mirrored whole to one small file at
// every event, so that the page can show recent history and nothing ever grows.
//
// The file only mirrors. It is never read back, and the first event after a
// restart replaces whatever it held.
#pragma once

#include <cstddef>
#include <string>

#include <boost/circular_buffer.hpp>

#include "core/shared/mutex.h"

// Threads: main thread and stats thread log; each may wait for the other's file
//          rewrite, at most 100 lines of 1023 characters.
// Owner:   main(), from before the first event until after the last join.
// Errors:  none reported. A file that cannot be written keeps its old content;
//          the event is still in syslog, on stdout and in the ring.
class LogRing {
public:
    explicit LogRing(std::size_t line_count);

    // Logs one finished message, which brings its own line feed: to syslog at
    // LOG_INFO, then with the local time before it to stdout, ring and file.
    // Time and message together are cut to 1023 characters.
    void logLine(const char *text) EXCLUDES(mutex);

    // Formats as printf does, cut to 1023 characters without a mark, and logs.
    void logPrintf(const char *format, ...) EXCLUDES(mutex) __attribute__((format(printf, 2, 3)));

private:
    void writeFile() const REQUIRES(mutex);

    Mutex mutex;                                                  // covers the file as well
    boost::circular_buffer<std::string> lines GUARDED_BY(mutex);  // oldest first
};
