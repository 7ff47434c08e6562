// The simulated unit's program: a desk session with the daemon, or one far end of it.
#include <getopt.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "sim/decoder_unit.h"
#include "sim/encoder_unit.h"
#include "sim/http_client.h"
#include "sim/page_relay.h"
#include "sim/peer_program.h"
#include "sim/sandbox.h"
#include "sim/system_error.h"
#include "sim/terminal.h"

namespace {

namespace fs = std::filesystem;

constexpr const char *kUsage =
    R"(usage: unit_sim run decoder|encoder --daemon PATH --work-dir DIR

Runs the daemon PATH in a video unit in a box: a network, devices and file systems of
its own, and two SRT far ends. Settings and output lie in a directory of this session's
below DIR and go with it. Shows what to try in a second terminal; Ctrl-C ends everything.

Signals: USR1 pauses the encoder's device and lets it go on, USR2 brings back what was
stopped or killed.
)";

constexpr timespec kTick{0, 250'000'000};

struct Arguments {
    bool is_encoder = false;
    sim::UnitOptions unit;
};

// Nothing where the arguments make no sense.
std::optional<Arguments> parseArguments(int argc, char **argv) {
    const option known[] = {{"daemon", required_argument, nullptr, 'd'},
                            {"work-dir", required_argument, nullptr, 'w'},
                            {nullptr, 0, nullptr, 0}};
    Arguments arguments;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        if (letter == '?') {
            return std::nullopt;
        }
        (letter == 'd' ? arguments.unit.daemon : arguments.unit.directory) = fs::absolute(optarg);
    }
    const bool complete = optind + 2 == argc && std::strcmp(argv[optind], "run") == 0 &&
                          !arguments.unit.daemon.empty() && !arguments.unit.directory.empty();
    const std::string family = complete ? argv[optind + 1] : "";
    arguments.is_encoder = family == "encoder";
    // Several sessions may share the directory that was named.
    arguments.unit.directory /= family + "-" + std::to_string(getpid());
    return family == "encoder" || family == "decoder" ? std::optional(arguments) : std::nullopt;
}

sigset_t blockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    // Of a reader of the output that has gone, SIGPIPE tells: the end as well.
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
        sigaddset(&signals, number);
    }
    sim::check(sigprocmask(SIG_BLOCK, &signals, nullptr), "block signals");
    return signals;
}

std::string pageAddress(const sim::PageRelay &relay) {
    const bool there = sim::apiListens();
    return there ? "http://127.0.0.1:" + std::to_string(relay.port()) + "/" : "";
}

void introduce(const sim::SimulatedUnit &unit, const std::string &page, sim::Terminal &terminal) {
    terminal.print("Page:    " + (page.empty() ? "none, nothing answers at port 8000" : page));
    terminal.print("Output:  " + unit.daemon().outputFile().string() + " and " +
                   unit.daemon().errorFile().filename().string());
    terminal.print("Try in a second terminal:");
    for (const sim::Hint &hint : unit.hints(page)) {
        terminal.print("  " + hint.command + "\n      " + hint.effect);
    }
    terminal.print("Ctrl-C ends all of it.\n");
}

void printNews(sim::SimulatedUnit &unit, sim::Terminal &terminal) {
    for (const std::string &sentence : unit.news()) {
        terminal.print(sentence);
    }
}

// Until a signal asks for the end.
void live(sim::SimulatedUnit &unit, const sigset_t &signals, sim::Terminal &terminal) {
    for (;;) {
        printNews(unit, terminal);
        terminal.update(unit.status());
        const int number = sigtimedwait(&signals, nullptr, &kTick);
        if (number == SIGUSR1) {
            terminal.print(unit.turnSwitch());
        } else if (number == SIGUSR2) {
            unit.revive();
        } else if (number > 0) {
            return;
        }
    }
}

std::unique_ptr<sim::SimulatedUnit> makeUnit(const Arguments &arguments) {
    if (arguments.is_encoder) {
        return std::make_unique<sim::EncoderUnit>(arguments.unit);
    }
    return std::make_unique<sim::DecoderUnit>(arguments.unit);
}

void runSession(const Arguments &arguments) {
    const sigset_t signals = blockSignals();
    fs::create_directories(arguments.unit.directory);
    sim::PageRelay relay;
    // The directory above: one that is a mount point itself could not be removed again.
    sim::enterSandbox(
        {arguments.unit.directory.parent_path(), arguments.unit.daemon.parent_path()});
    relay.start();
    const auto unit = makeUnit(arguments);
    sim::Terminal terminal;
    introduce(*unit, pageAddress(relay), terminal);
    live(*unit, signals, terminal);
    unit->stopDaemon();
    printNews(*unit, terminal);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 5 && std::strcmp(argv[1], "peer") == 0) {
        return sim::runPeer(std::atoi(argv[4]));
    }
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << kUsage;
        return 0;
    }
    const auto arguments = parseArguments(argc, argv);
    if (!arguments) {
        std::cerr << kUsage;
        return 2;
    }
    try {
        runSession(*arguments);
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "unit_sim: " << error.what() << '\n';
        return 1;
    }
}
