// One program started by a test or by the simulated unit, never left behind: it is
// ended with its owner, and the kernel kills it should the owner die first.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct ProcessOptions {
    std::vector<std::string> command;                  // [0] is the path of the program
    std::optional<std::vector<std::string>> env = {};  // "NAME=value"; absent: the caller's own
    int out = -1;                                      // becomes stdout; -1: the caller's
    int err = -1;                                      // becomes stderr; -1: the caller's
    std::vector<int> inherited = {};                   // descriptors that stay open in the program
    // Runs in the new process right before the program; only calls that are safe
    // after a fork of a process with threads.
    std::function<void()> before_exec = {};
};

// Threads: one at a time, and the one that starts the process must outlive it: the
// kernel's death signal follows that thread.
// Errors:  std::system_error if no process can be made. A program that cannot be
//          executed ends with status 127.
class ChildProcess {
public:
    explicit ChildProcess(const ProcessOptions &options);
    ~ChildProcess();  // kills
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    [[nodiscard]] pid_t pid() const { return process; }
    void signal(int number);

    // True while the program has not ended.
    bool isRunning();
    // Waits for the end; false if it has not come within `limit`.
    bool waitForEnd(std::chrono::milliseconds limit);
    // SIGTERM (and SIGCONT, should it be stopped), and SIGKILL once `limit` is over.
    // Returns whether the first was enough.
    bool end(std::chrono::milliseconds limit);
    // SIGKILL, without a word.
    void kill();

    // Requires: the program has ended. The exit status, or minus the number of the
    // signal that ended it.
    [[nodiscard]] int status() const { return ended.value(); }

private:
    const pid_t process;
    std::optional<int> ended;  // as status() tells it
};

}  // namespace sim
