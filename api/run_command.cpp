#include "api/run_command.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What a child starts with.
struct SpawnSettings {
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
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
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

void waitFor(pid_t child) {
    while (waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
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
