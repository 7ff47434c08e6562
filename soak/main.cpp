// tidewell_soak: misfortune after misfortune, by chance and repeatable.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>

#include "sim/sandbox.h"
#include "soak/limits.h"
#include "soak/soaked_decoder.h"
#include "soak/soaked_encoder.h"
#include "soak/trouble.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::minutes kLearning{10};  // memory finds its height

constexpr const char *kUsage = R"(usage: tidewell_soak decoder|encoder SECONDS SEED

Runs the daemon in a unit of its own and breaks, one after the other and by chance, what
surrounds it: far ends, network, disk, settings, the daemon itself. After each the stream
has to be back in time, the settings whole, and nothing left behind. The same SEED brings the
same troubles. Ends with status 1 at the first promise that was not kept.
)";

struct Arguments {
    std::string family;
    std::chrono::seconds length{};
    unsigned seed = 0;
};

struct Tally {
    unsigned times = 0;
    milliseconds longest{0};
};

std::unique_ptr<SoakedUnit> makeUnit(const std::string &family) {
    if (family == "encoder") {
        return std::make_unique<SoakedEncoder>();
    }
    return std::make_unique<SoakedDecoder>();
}

// What every address takes is what the daemon may take later.
void learnCeilings(SoakedDaemon &daemon, const SoakedUnit &unit) {
    for (const std::string &address : unit.addresses()) {
        daemon.apply({address, ""});
        daemon.expectFlow(kReopening);
        daemon.raiseCeilings();
    }
}

// Returns the time until the stream was back.
milliseconds suffer(const Trouble &trouble, bool learning, SoakedDaemon &daemon, SoakedUnit &unit) {
    trouble.strike(daemon, unit);
    const milliseconds taken = daemon.expectFlow(trouble.bound);
    if (learning) {
        daemon.raiseMemoryCeiling();
    }
    daemon.expectWholeSettings();
    daemon.expectNothingLeftBehind();
    daemon.expectCleanOutput();
    return taken;
}

void printTallies(const std::map<std::string, Tally> &tallies) {
    for (const auto &[name, tally] : tallies) {
        std::cout << "  " << tally.times << " x " << name << ", back after at most "
                  << tally.longest.count() << " ms\n";
    }
}

void soak(const Arguments &arguments) {
    const auto start = Clock::now();
    const auto unit = makeUnit(arguments.family);
    SoakedDaemon daemon(*unit, arguments.seed);
    learnCeilings(daemon, *unit);
    std::map<std::string, Tally> tallies;
    const auto troubles = allTroubles();
    unsigned count = 0;
    while (Clock::now() < start + arguments.length) {
        const bool learning = Clock::now() < start + kLearning;
        const Trouble &trouble = troubles[daemon.roll(static_cast<unsigned>(troubles.size()))];
        std::cout << ++count << ". " << trouble.name << std::flush;
        const milliseconds taken = suffer(trouble, learning, daemon, *unit);
        std::cout << ": back after " << taken.count() << " ms, " << daemon.process().residentKb()
                  << " kB" << std::endl;
        Tally &tally = tallies[trouble.name];
        ++tally.times;
        tally.longest = std::max(tally.longest, taken);
    }
    daemon.stopInOrder();
    std::cout << arguments.family << ", seed " << arguments.seed << ": " << count
              << " troubles, never more than " << daemon.ceilings() << '\n';
    printTallies(tallies);
}

}  // namespace

int main(int argc, char **argv) {
    const std::string family = argc == 4 ? argv[1] : "";
    if (family != "decoder" && family != "encoder") {
        std::cerr << kUsage;
        return 2;
    }
    const Arguments arguments{family, std::chrono::seconds(std::atoi(argv[2])),
                              static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10))};
    try {
        sim::enterSandbox();
        soak(arguments);
        return 0;
    } catch (const std::exception &error) {
        std::cout << "\n" << family << ", seed " << arguments.seed << ": " << error.what() << '\n';
        return 1;
    }
}
