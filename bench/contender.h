// A program that does the job, started and watched from outside.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "bench/far_socket.h"

namespace bench {

// What the program is to do.
struct Job {
    bool encoder = false;  // from the device to SRT, else from SRT to the unit
    Role role = Role::caller;
    int port = 0;
    int latency_ms = 120;
};

enum class Program { daemon, bare, spinning, plain };

// Which of them can do a job beside the daemon: a receiving listener may spin instead of
// waiting, a sender may run under the ordinary scheduler instead of SCHED_RR.
std::vector<Program> programsFor(const Job &job);
const char *nameOf(Program program);

// Errors: std::runtime_error if the program cannot be started or has ended by itself.
class Contender {
public:
    Contender(Program program, const Job &job);
    ~Contender();  // ends it at once, without its own shutdown
    Contender(const Contender &) = delete;
    Contender &operator=(const Contender &) = delete;

    // Of all its threads, user and system, to the nanosecond.
    [[nodiscard]] double cpuSeconds() const;
    [[nodiscard]] double residentMib() const;
    [[nodiscard]] pid_t id() const { return pid; }

    // What the last one wrote to stdout and stderr.
    static std::string output();

private:
    pid_t pid = -1;
};

}  // namespace bench
