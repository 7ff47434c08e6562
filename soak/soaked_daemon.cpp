#include "soak/soaked_daemon.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <sys/mount.h>

#include "sim/clock.h"
#include "sim/http_client.h"
#include "sim/system_error.h"
#include "soak/limits.h"

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t kSteadyNs = 300'000'000;  // as much stream on end counts as "back"
constexpr long kLeewayKb = 1024;

std::string seconds(std::chrono::milliseconds time) {
    return std::to_string(static_cast<double>(time.count()) / 1000).substr(0, 5) + " s";
}

std::chrono::milliseconds since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start);
}

void expectAtMost(const char *what, long number, long limit) {
    if (number > limit) {
        throw std::runtime_error(std::to_string(number) + " " + what + ", at most " +
                                 std::to_string(limit) + " before");
    }
}

}  // namespace

SoakedDaemon::SoakedDaemon(SoakedUnit &soaked_unit, unsigned seed) : unit(soaked_unit), dice(seed) {
    sim::check(mount("none", kSettingsDirectory, "tmpfs", 0, "size=64k"), "mount the settings");
    sim::check(mount("none", "/tmp", nullptr, MS_REMOUNT, "size=16m,mode=1777"), "limit /tmp");
    writeByHand(drawSettings());
    start();
}

SoakedDaemon::~SoakedDaemon() {
    daemon.reset();
    umount2(kSettingsDirectory, MNT_DETACH);
}

unsigned SoakedDaemon::roll(unsigned limit) {
    return static_cast<unsigned>(dice() >> 4U) % limit;
}

Settings SoakedDaemon::drawSettings() {
    std::vector<std::string> choice = unit.addresses();
    std::shuffle(choice.begin(), choice.end(), dice);
    Settings drawn{choice[0], roll(8) == 0 ? "" : choice[1]};
    return drawn.primary == newest.primary ? drawSettings() : drawn;
}

void SoakedDaemon::start() {
    daemon = std::make_unique<sim::Daemon>(
        sim::DaemonOptions{.product = unit.product(),
                           .env = {std::string("PROXY_CFG=") + kSettingsFile},
                           .write_config = false});
    if (!sim::apiListens()) {
        throw std::runtime_error("nobody listens on port 8000");
    }
}

void SoakedDaemon::stopInOrder() {
    const auto start = std::chrono::steady_clock::now();
    const int status = daemon->stop(kOrderlyEnd);
    if (status != 0) {
        throw std::runtime_error("ended with status " + std::to_string(status) + " after " +
                                 seconds(since(start)));
    }
}

void SoakedDaemon::kill() {
    daemon->signal(SIGKILL);
    daemon->waitForEnd();
}

void SoakedDaemon::expectEither(const Settings &wanted) {
    newest = wanted;
    meanings = {meaningOf(readText(kSettingsFile)), meaningOf(wanted.text())};
}

void SoakedDaemon::apply(const Settings &wanted) {
    expectEither(wanted);
    if (sim::ask("/api/cfg/set", wanted.text()).status() != 200) {
        throw std::runtime_error("/api/cfg/set was not answered");
    }
}

void SoakedDaemon::writeByHand(const Settings &wanted) {
    writeText(kSettingsFile, wanted.text());
    expectEither(wanted);
}

// Old pieces may still be on their way: those of now and a little later count.
std::chrono::milliseconds SoakedDaemon::expectFlow(std::chrono::milliseconds bound) {
    const auto start = std::chrono::steady_clock::now();
    const std::uint64_t awaited = sim::monotonicNs() + kSteadyNs;
    if (!sim::waitUntil([&] { return unit.lastArrivalNs() > awaited; }, bound)) {
        throw std::runtime_error(daemon->isRunning() ? "no stream after " + seconds(bound)
                                                     : "the daemon has ended");
    }
    if (unit.damage() != 0) {
        throw std::runtime_error("what arrived is not what was sent");
    }
    return since(start);
}

void SoakedDaemon::expectWholeSettings() const {
    const std::string text = readText(kSettingsFile);
    if (std::find(meanings.begin(), meanings.end(), meaningOf(text)) == meanings.end()) {
        throw std::runtime_error("the settings file reads as neither document:\n" + text);
    }
}

void SoakedDaemon::expectNothingLeftBehind() {
    sim::waitUntil([&] {
        return daemon->descriptors() <= most_descriptors && daemon->threads() <= most_threads;
    });
    expectAtMost("descriptors", daemon->descriptors(), most_descriptors);
    expectAtMost("threads", daemon->threads(), most_threads);
    if (!sim::kSanitized) {
        expectAtMost("kB resident", daemon->residentKb(), most_resident_kb + kLeewayKb);
    }
}

void SoakedDaemon::raiseCeilings() {
    most_descriptors = std::max(most_descriptors, daemon->descriptors());
    most_threads = std::max(most_threads, daemon->threads());
    raiseMemoryCeiling();
}

void SoakedDaemon::raiseMemoryCeiling() {
    most_resident_kb = std::max(most_resident_kb, daemon->residentKb());
}

std::string SoakedDaemon::ceilings() const {
    return std::to_string(most_descriptors) + " descriptors, " + std::to_string(most_threads) +
           " threads, " + std::to_string(most_resident_kb) + " kB";
}

void SoakedDaemon::expectCleanOutput() const {
    const std::string output = daemon->standardOutput() + daemon->standardError();
    for (const char *report : {"Sanitizer", "runtime error:", "terminate called"}) {
        if (output.find(report) != std::string::npos) {
            throw std::runtime_error(std::string("\"") + report + "\" in the daemon's output");
        }
    }
}
