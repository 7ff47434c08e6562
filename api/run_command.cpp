#include "api/run_command.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/shared/shared_words.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLongestWait{10'000};
constexpr std::chrono::milliseconds kLongestWaitAtStop{1'000};
constexpr std::chrono::milliseconds kBetweenLooks{5};

// The pipe or terminal `fd`, opened once more so that it waits for its reader, which this
// process's own do not and which programs expect. -1 if `fd` is neither, or nobody reads it. A
// socket cannot be opened: there a program may find that its output is not taken.
int openWaiting(int fd) {
    struct stat status {};
    if (fstat(fd, &status) == -1 || (!S_ISFIFO(status.st_mode) && isatty(fd) == 0)) {
        return -1;
    }
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const int pipe = open(name.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (pipe != -1) {
        fcntl(pipe, F_SETFL, 0);
    }
    return pipe;
}

// What a child starts with.
struct SpawnSettings {
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
            const int pipe = openWaiting(fd);
            if (pipe != -1) {
                posix_spawn_file_actions_adddup2(&actions, pipe, fd);
                pipes.push_back(pipe);
            }
        }
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
    }
    ~SpawnSettings() {
        for (const int pipe : pipes) {
            close(pipe);
        }
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    std::vector<int> pipes;  // the child's, in place of ours
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

// Children that earlier calls gave up on are taken in too, lest they stay as zombies.
void waitFor(pid_t child) {
    const auto start = steady_clock::now();
    for (pid_t ended = 0; ended != child && ended != -1;) {
        ended = waitpid(-1, nullptr, WNOHANG);
        const auto limit = stop_flag == 0 ? kLongestWait : kLongestWaitAtStop;
        if (ended == 0 && steady_clock::now() - start >= limit) {
            return;
        }
        if (ended == 0) {
            std::this_thread::sleep_for(kBetweenLooks);
        }
    }
}

}  // namespace

void runCommand(const char *command) {
    const SpawnSettings settings;
    const char *arguments[] = {"sh", "-c", command, nullptr};
    pid_t child = 0;
    const int failure = posix_spawn(&child, "/bin/sh", &settings.actions, &settings.attributes,
                                    const_cast<char *const *>(arguments), environ);
    if (failure != 0) {
        fprintf(stderr, "Could not run %s: %s\n", command, strerror(failure));
        return;
    }
    waitFor(child);
}
