// A program that does the job, started and watched from outside.
#pragma once

#include <string>
#include <vector>

#include "bench/far_socket.h"
#include "sim/child_process.h"
#include "sim/file_descriptor.h"

namespace bench {

// What the program is to do.
struct Job {
    bool encoder = false;  // from the device to SRT, else from SRT to the unit
    Role role = Role::caller;
    int port = 0;
    int latency_ms = 120;
};

enum class Program { daemon, bare, spinning, plain };

// The daemon and what it is compared with: beside the bare loop a receiving listener may
// spin instead of waiting, a sender may run under the ordinary scheduler instead of SCHED_RR.
std::vector<Program> programsFor(const Job &job);
const char *nameOf(Program program);

// Threads: the one that made it. It is killed with its owner, without a shutdown.
// Errors:  std::system_error if it cannot be started, std::runtime_error with its own
//          words if it has ended when it is asked about.
class Contender {
public:
    Contender(Program program, const Job &job);

    // Of all its threads, user and system, to the nanosecond.
    [[nodiscard]] double cpuSeconds() const;
    // Of the thread that moves the data, which is the first one.
    [[nodiscard]] double pumpSeconds() const;
    [[nodiscard]] double residentMib() const;
    [[nodiscard]] pid_t pid() const { return process.pid(); }

    // `what` went wrong, as the exception that tells what the program wrote as well.
    [[noreturn]] static void fail(const std::string &what);

private:
    sim::FileDescriptor output;
    sim::ChildProcess process;
};

}  // namespace bench
