#include "sim/child_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "sim/system_error.h"
#include "sim/wait_until.h"

namespace sim {
namespace {

std::vector<char *> pointersTo(const std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                   [](const std::string &text) { return const_cast<char *>(text.c_str()); });
    pointers.push_back(nullptr);
    return pointers;
}

// What is blocked or ignored here must not be so in the program.
void restoreSignals() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
        std::signal(number, SIG_DFL);
    }
}

void useAs(int descriptor, int number) {
    if (descriptor >= 0) {
        dup2(descriptor, number);
    }
}

pid_t start(const ProcessOptions &options) {
    const auto arguments = pointersTo(options.command);
    const std::vector<std::string> own_texts = options.env.value_or(std::vector<std::string>{});
    const auto environment = pointersTo(own_texts);
    const pid_t parent = getpid();
    const pid_t child = check(fork(), "start " + options.command.at(0));
    if (child != 0) {
        return child;
    }
    restoreSignals();
    setpgid(0, 0);  // Ctrl-C at a terminal is for the owner, who ends the others in order
    useAs(options.out, STDOUT_FILENO);
    useAs(options.err, STDERR_FILENO);
    for (const int descriptor : options.inherited) {
        fcntl(descriptor, F_SETFD, 0);
    }
    if (options.before_exec) {
        options.before_exec();
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) {
        execve(arguments[0], arguments.data(), options.env ? environment.data() : environ);
        dprintf(STDERR_FILENO, "cannot run %s: %s\n", arguments[0], strerror(errno));
    }
    _exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const ProcessOptions &options) : process(start(options)) {}

ChildProcess::~ChildProcess() {
    kill();
}

void ChildProcess::signal(int number) {
    if (isRunning()) {
        ::kill(process, number);
    }
}

bool ChildProcess::isRunning() {
    int wait_status = 0;
    if (!ended && waitpid(process, &wait_status, WNOHANG) == process) {
        ended = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -WTERMSIG(wait_status);
    }
    return !ended;
}

bool ChildProcess::waitForEnd(std::chrono::milliseconds limit) {
    return waitUntil([this] { return !isRunning(); }, limit);
}

bool ChildProcess::end(std::chrono::milliseconds limit) {
    signal(SIGTERM);
    signal(SIGCONT);
    const bool obeyed = waitForEnd(limit);
    kill();
    return obeyed;
}

void ChildProcess::kill() {
    signal(SIGKILL);
    int wait_status = 0;
    if (!ended && waitpid(process, &wait_status, 0) == process) {
        ended = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -WTERMSIG(wait_status);
    }
}

}  // namespace sim
