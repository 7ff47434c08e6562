#include "bench/single_run.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "bench/far_ends.h"
#include "bench/stamped_socket.h"
#include "bench/stream_run.h"
#include "sim/clock.h"
#include "sim/lossy_relay.h"

namespace bench {
namespace {

constexpr std::uint64_t kStartUpRate = 20;  // Mbit/s
constexpr int kLossyLatencyMs = 250;
constexpr auto kOneWay = std::chrono::milliseconds(30);
constexpr auto kSettle = std::chrono::seconds(2);
constexpr const char *kStrace = "/usr/bin/strace";
constexpr const char *kTracePath = "/tmp/trace.txt";  // the sandbox's own
constexpr auto kTraceTime = std::chrono::seconds(3);

using Counts = std::map<std::string, double>;

// The table of `strace -c`: "12.34 0.001 3 4567 [errors] name" a line.
Counts readTrace() {
    Counts counts;
    std::ifstream file(kTracePath);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        double share = 0;
        double seconds = 0;
        double each_us = 0;
        double calls = 0;
        std::string name;
        if (words >> share >> seconds >> each_us >> calls) {
            while (words >> name) {  // the last word; an error count may stand before it
            }
            counts[name] = calls;
        }
    }
    counts.erase("total");
    return counts;
}

// Of the thread with the process's own id, which is the one that moves the data.
Counts traceCalls(const Contender &contender) {
    sim::ProcessOptions options;
    options.command = {
        kStrace, "-q", "-c", "-o", kTracePath, "-p", std::to_string(contender.pid())};
    sim::ChildProcess strace(options);
    std::this_thread::sleep_for(kTraceTime);
    strace.signal(SIGINT);
    strace.waitForEnd(kTraceTime);
    return readTrace();
}

std::string perRead(const Counts &counts, const char *source) {
    const auto reads = counts.find(source);
    if (reads == counts.end()) {
        return "";
    }
    std::string text;
    for (const auto &[name, calls] : counts) {
        char entry[64];
        snprintf(entry, sizeof entry, "%s%s %.2f", text.empty() ? "" : ", ", name.c_str(),
                 calls / reads->second);
        text += entry;
    }
    return text;
}

}  // namespace

double startUpMs(Program program) {
    const Job job{.role = Role::caller, .port = freshPort()};
    Recorder recorder;
    const StampedSocket unit(openUnitInput(), kUnitInputHeader, recorder);
    const SrtSender sender(Role::listener, job.port, job.latency_ms, kStartUpRate);
    const std::uint64_t start_ns = sim::monotonicNs();
    const Contender contender(program, job);
    awaitStream(recorder);
    return static_cast<double>(recorder.firstArrivalNs() - start_ns) / 1e6;
}

LossResult lossyStream(Program program, std::uint64_t rate_mbit, double seconds) {
    const Job job{.encoder = true, .port = freshPort(), .latency_ms = kLossyLatencyMs};
    const int target_port = freshPort();
    Recorder recorder;
    const FifoWriter device(rate_mbit);
    const SrtReceiver receiver(Role::listener, target_port, kLossyLatencyMs, recorder);
    const sim::LossyRelay relay({.port = static_cast<std::uint16_t>(job.port),
                                 .target_port = static_cast<std::uint16_t>(target_port),
                                 .loss_percent = 1,
                                 .delay = kOneWay});
    const Contender contender(program, job);
    awaitStream(recorder);
    std::this_thread::sleep_for(kSettle);
    recorder.startWindow();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const Window window = recorder.endWindow();
    return {window.payloads + window.lost, window.lost};
}

std::string systemCallsPerRead(Program program, const Job &job, std::uint64_t rate_mbit) {
    if (access(kStrace, X_OK) != 0) {
        return "";
    }
    Counts counts;
    runStream(program, job, rate_mbit, {.seconds = 1},
              [&](const Contender &contender) { counts = traceCalls(contender); });
    return perRead(counts, job.encoder ? "read" : "sendto");
}

}  // namespace bench
