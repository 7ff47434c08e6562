#include "bench/contender.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>

#include "bench/far_ends.h"

namespace bench {
namespace {

// Both are the sandbox's own.
constexpr const char *kSettingsPath = "/tmp/bench.cfg";
constexpr const char *kOutputPath = "/tmp/contender.log";
constexpr std::size_t kShownBytes = 2000;  // of a failed program's words

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

sim::ProcessOptions processOptions(Program program, const Job &job, int output) {
    sim::ProcessOptions options;
    options.command = commandLine(program, job);
    options.env = std::vector<std::string>{std::string("PROXY_CFG=") + kSettingsPath,
                                           job.encoder ? "PRODUCT=WX" : "PRODUCT=WQ"};
    options.out = output;
    options.err = output;
    return options;
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

Contender::Contender(Program program, const Job &job)
    : output(open(kOutputPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)),
      process((writeSettings(job), processOptions(program, job, output.get()))) {}

double Contender::cpuSeconds() const {
    clockid_t clock = 0;
    timespec spent{};
    if (clock_getcpuclockid(pid(), &clock) != 0 || clock_gettime(clock, &spent) != 0) {
        fail("the program has ended");
    }
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
}

double Contender::pumpSeconds() const {
    const std::string id = std::to_string(pid());
    std::ifstream file("/proc/" + id + "/task/" + id + "/schedstat");
    double nanoseconds = 0;
    if (!(file >> nanoseconds)) {
        fail("the program has ended");
    }
    return nanoseconds / 1e9;
}

double Contender::residentMib() const {
    std::ifstream status("/proc/" + std::to_string(pid()) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            double kib = 0;
            status >> kib;
            return kib / 1024;
        }
    }
    fail("the program has ended");
}

void Contender::fail(const std::string &what) {
    std::ifstream log(kOutputPath);
    std::string words{std::istreambuf_iterator<char>(log), {}};
    words.erase(0, words.size() - std::min(words.size(), kShownBytes));
    throw std::runtime_error(what + "; it said:\n" + words);
}

}  // namespace bench
