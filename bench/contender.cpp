#include "bench/contender.h"

#include <csignal>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/far_ends.h"

namespace bench {
namespace {

// Both are the sandbox's own.
constexpr const char *kSettingsPath = "/tmp/bench.cfg";
constexpr const char *kOutputPath = "/tmp/contender.log";

const char *wordFor(Role role) {
    return role == Role::caller ? "caller" : "listener";
}

void writeSettings(const Job &job) {
    std::ofstream(kSettingsPath) << R"({"uris":[{"idx":0,"enable":true,"uri":"srt://127.0.0.1:)"
                                 << job.port << "?latency=" << job.latency_ms
                                 << "&mode=" << wordFor(job.role)
                                 << R"("},{"idx":1,"enable":false,"uri":"srt://"}]})";
}

std::vector<std::string> commandLine(Program program, const Job &job) {
    if (program == Program::daemon) {
        return {TIDEWELL_DAEMON};
    }
    std::vector<std::string> words{TIDEWELL_BARE_LOOP, job.encoder ? "send" : "receive",
                                   wordFor(job.role), std::to_string(job.port),
                                   std::to_string(job.latency_ms)};
    if (job.encoder) {
        words.emplace_back(kDevicePath);
    }
    if (program == Program::spinning) {
        words.emplace_back("--spin");
    }
    if (job.encoder && program == Program::bare) {
        words.emplace_back("--realtime");
    }
    return words;
}

// As execve wants them. Requires: `words` outlives the result.
std::vector<char *> pointers(std::vector<std::string> &words) {
    std::vector<char *> list;
    for (std::string &word : words) {
        list.push_back(word.data());
    }
    list.push_back(nullptr);
    return list;
}

pid_t spawn(std::vector<std::string> words, std::vector<std::string> environment) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, kOutputPath,
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, words[0].c_str(), &actions, nullptr,
                                  pointers(words).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start " + words[0]);
    }
    return pid;
}

}  // namespace

std::vector<Program> programsFor(const Job &job) {
    if (job.encoder) {
        return {Program::daemon, Program::bare, Program::plain};
    }
    if (job.role == Role::listener) {
        return {Program::daemon, Program::bare, Program::spinning};
    }
    return {Program::daemon, Program::bare};
}

const char *nameOf(Program program) {
    switch (program) {
    case Program::daemon:
        return "tidewell";
    case Program::bare:
        return "bare loop";
    case Program::spinning:
        return "bare loop, spinning";
    case Program::plain:
        return "bare loop, plain scheduler";
    }
    return "";
}

Contender::Contender(Program program, const Job &job) {
    writeSettings(job);
    pid = spawn(commandLine(program, job), {std::string("PROXY_CFG=") + kSettingsPath,
                                            job.encoder ? "PRODUCT=WX" : "PRODUCT=WQ"});
}

Contender::~Contender() {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

double Contender::cpuSeconds() const {
    clockid_t clock = 0;
    timespec spent{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &spent) != 0) {
        throw std::runtime_error("the program under test has ended");
    }
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
}

double Contender::residentMib() const {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            double kib = 0;
            status >> kib;
            return kib / 1024;
        }
    }
    throw std::runtime_error("the program under test has ended");
}

std::string Contender::output() {
    std::ifstream file(kOutputPath);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace bench
