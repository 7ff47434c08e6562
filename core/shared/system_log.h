// The system's log, without its wait: syslog(3) waits for as long as the logger does not
// read, and takes the whole process with it.
#pragma once

#include <syslog.h>  // the priorities

// Sends one message to the logger at /dev/log, as "tidewell" with the facility LOG_USER,
// and a copy to stderr. `priority` is LOG_INFO or LOG_ERR; the message is cut to 2 kB, and
// needs no line feed. What the logger has no room for is lost to it.
//
// Threads: any.
void systemLog(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));
