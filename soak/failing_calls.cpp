// tidewell_failing_calls: one short life of the daemon after the other, and in each of them
// another one of its calls fails.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

#include "sim/clock.h"
#include "sim/http_client.h"
#include "sim/sandbox.h"
#include "sim/shared_object.h"
#include "sim/shimmed_daemon.h"
#include "sim/system_error.h"
#include "soak/settings.h"
#include "soak/soaked_decoder.h"
#include "soak/soaked_encoder.h"

namespace {

using namespace std::chrono_literals;

constexpr const char *kUsage = R"(usage: tidewell_failing_calls decoder|encoder [CALL [STEP]]

Lives of the daemon with a start, a stream, three changes of its settings and a stop, in each of
which one call fails: the first socket(), then the second one, and so on, for CALL or for all
kinds ("all"); with STEP only for every STEP-th. Before the stream first flows the daemon may end
with a message and a status above 0; after that it has to go on. Calls on libsrt's own threads and
its allocations are left alone. Ends with status 1 if a life was not as it should be.
)";

constexpr int kLivesAtATime = 8;
constexpr unsigned kLifeLimitSeconds = 150;
constexpr auto kFlowLimit = 25s;
constexpr int kSpared = 2;  // exit status of a life
constexpr std::size_t kChanges = 3;
constexpr std::size_t kLastWords = 2500;
constexpr auto kSettling = 4s;
constexpr auto kAskAgainAfter = 100ms;
constexpr const char *kSettingsFile = "/etc/sysconfig/proxy.cfg";

struct Failure {
    std::size_t call = sim::kShimCallKinds;  // that: none, the calls are counted
    std::int64_t number = 0;
};

// What the life in which nothing fails has shown.
struct PlainLife {
    std::array<std::uint64_t, sim::kShimCallKinds> calls;
    int fewest_descriptors;  // some come and go
    int most_descriptors;
    bool spared;  // the call was libsrt's own allocation and did not fail
};

void fail(const std::string &sentence) {
    throw std::runtime_error(sentence);
}

// Those without encryption: the first one with it makes OpenSSL set itself up in 40,000
// allocations.
std::vector<std::string> plainAddresses(const SoakedUnit &unit) {
    std::vector<std::string> all = unit.addresses();
    std::erase_if(all, [](const std::string &uri) { return uri.find("passphrase") != uri.npos; });
    return all;
}

class Life {
public:
    Life(SoakedUnit &soaked_unit, const Failure &failure)
        : unit(soaked_unit), addresses(plainAddresses(unit)), newest{addresses[0], ""} {
        writeText(kSettingsFile, newest.text());
        daemon = std::make_unique<sim::ShimmedDaemon>(
            sim::DaemonOptions{.product = unit.product(),
                               .env = {std::string("PROXY_CFG=") + kSettingsFile},
                               .write_config = false},
            [&](sim::CallShim &shim) {
                shim.spare_libraries = true;
                if (failure.call < sim::kShimCallKinds) {
                    shim.fail_in.at(failure.call) = failure.number;
                }
            });
    }

    // What it has counted. A failure tells the daemon's last words.
    PlainLife run() {
        try {
            return live();
        } catch (const std::runtime_error &error) {
            const std::string said = (*daemon)->standardError();
            fail(error.what() + std::string("; it said:\n") +
                 said.substr(said.size() - std::min(said.size(), kLastWords)));
            throw;
        }
    }

private:
    PlainLife live() {
        if (!awaitStream()) {
            expectRefusal();
            return {};
        }
        for (std::size_t i = 1; i <= kChanges; ++i) {
            apply({addresses[i % addresses.size()], ""});
        }
        PlainLife seen{};
        countDescriptors(seen);
        if (const int status = (*daemon)->stop(kFlowLimit); status != 0) {
            fail("the stop ended with status " + std::to_string(status));
        }
        seen.spared = daemon->shim->spared;
        for (std::size_t kind = 0; kind < seen.calls.size(); ++kind) {
            seen.calls.at(kind) = daemon->shim->calls.at(kind);
        }
        return seen;
    }

    // False if the daemon has ended.
    bool awaitStream() {
        const std::uint64_t awaited = sim::monotonicNs() + 300'000'000;
        bool runs = true;
        const bool flows = sim::waitUntil(
            [&] {
                runs = (*daemon)->isRunning();
                return !runs || unit.lastArrivalNs() > awaited;
            },
            kFlowLimit);
        if (!flows) {
            fail("no stream");
        }
        return runs;
    }

    void expectRefusal() {
        const int status = (*daemon)->stop();
        if (status <= 0) {
            fail("the start ended with status " + std::to_string(status));
        }
        if ((*daemon)->countLines("") == 0) {
            fail("the start ended with status " + std::to_string(status) + " without a word");
        }
    }

    // As a client does that asks again when it gets no answer.
    void apply(const Settings &wanted) {
        const std::string old_meaning = meaningOf(newest.text());
        newest = wanted;
        if (!sim::waitUntil([&] { return answers(wanted); }, kFlowLimit)) {
            fail("/api/cfg/set is not answered");
        }
        if (!awaitStream()) {
            fail("the daemon ended with status " + std::to_string((*daemon)->stop()));
        }
        const std::string meaning = meaningOf(readText(kSettingsFile));
        if (meaning != old_meaning && meaning != meaningOf(wanted.text())) {
            fail("the settings file reads as neither document: " + readText(kSettingsFile));
        }
    }

    static bool answers(const Settings &wanted) {
        try {
            if (sim::ask("/api/cfg/set", wanted.text()).status() == 200) {
                return true;
            }
        } catch (const std::runtime_error &) {
        }
        std::this_thread::sleep_for(kAskAgainAfter);
        return false;
    }

    // Once the API has closed what its clients have left, and libsrt its old sockets.
    void countDescriptors(PlainLife &seen) {
        seen.fewest_descriptors = seen.most_descriptors = (*daemon)->descriptors();
        sim::waitUntil(
            [&] {
                const int count = (*daemon)->descriptors();
                seen.fewest_descriptors = std::min(seen.fewest_descriptors, count);
                seen.most_descriptors = std::max(seen.most_descriptors, count);
                return false;
            },
            kSettling);
    }

    SoakedUnit &unit;
    const std::vector<std::string> addresses;
    Settings newest;
    std::unique_ptr<sim::ShimmedDaemon> daemon;
};

class Lives {
public:
    explicit Lives(std::string family_name) : family(std::move(family_name)) {
        begin({});
        awaitOne();
    }

    void tryEach(std::size_t call, std::int64_t step) {
        const auto count = static_cast<std::int64_t>(plain->calls.at(call));
        std::cout << sim::kShimCallNames.at(call) << ": " << count << " calls" << std::endl;
        for (std::int64_t number = 1; number <= count; number += step) {
            if (running.size() == kLivesAtATime) {
                awaitOne();
            }
            begin({call, number});
        }
    }

    // True if all lives were as they should be.
    bool finish() {
        while (!running.empty()) {
            awaitOne();
        }
        std::cout << family << ": " << lives << " lives, " << broken << " not as they should be; "
                  << spared << " calls were libsrt's own\n";
        return broken == 0;
    }

private:
    void begin(const Failure &failure) {
        std::cout.flush();
        const pid_t child = sim::check(fork(), "fork");
        if (child == 0) {
            _exit(live(failure));
        }
        running[child] = failure;
    }

    // Boost.Asio makes do with a pipe, which has two ends, where it gets no eventfd.
    static int spares(const Failure &failure) { return failure.call == sim::kShimEventfd ? 1 : 0; }

    int live(const Failure &failure) {
        alarm(kLifeLimitSeconds);
        try {
            sim::enterSandbox();
            std::unique_ptr<SoakedUnit> unit;
            if (family == "encoder") {
                unit = std::make_unique<SoakedEncoder>();
            } else {
                unit = std::make_unique<SoakedDecoder>();
            }
            const PlainLife seen = Life(*unit, failure).run();
            if (failure.call == sim::kShimCallKinds) {
                *plain = seen;
            } else if (seen.fewest_descriptors > plain->most_descriptors + spares(failure)) {
                fail(std::to_string(seen.fewest_descriptors) + " descriptors, " +
                     std::to_string(plain->most_descriptors) + " where nothing fails");
            }
            return seen.spared ? kSpared : 0;
        } catch (const std::exception &error) {
            const std::string name =
                failure.call == sim::kShimCallKinds ? "none" : sim::kShimCallNames.at(failure.call);
            std::cout << name + " " + std::to_string(failure.number) + ": " + error.what() + "\n"
                      << std::flush;
            return 1;
        }
    }

    void awaitOne() {
        int status = 0;
        const pid_t child = sim::check(wait(&status), "wait");
        if (WIFSIGNALED(status)) {
            const Failure &failure = running[child];
            std::cout << failure.call << " " << failure.number << ": ended by signal "
                      << WTERMSIG(status) << std::endl;
        }
        running.erase(child);
        ++lives;
        if (WIFEXITED(status) && WEXITSTATUS(status) == kSpared) {
            ++spared;
        } else if (status != 0) {
            ++broken;
        }
    }

    const std::string family;
    sim::SharedObject<PlainLife> plain;
    std::map<pid_t, Failure> running;
    int lives = 0;
    int spared = 0;
    int broken = 0;
};

// kShimCallKinds if there is no such kind.
std::size_t callNamed(const char *name) {
    for (std::size_t kind = 0; kind < sim::kShimCallKinds; ++kind) {
        if (std::strcmp(sim::kShimCallNames.at(kind), name) == 0) {
            return kind;
        }
    }
    return sim::kShimCallKinds;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string family = argc > 1 ? argv[1] : "";
    const std::string wanted = argc > 2 ? argv[2] : "all";
    const std::size_t only = callNamed(wanted.c_str());
    const int step = argc > 3 ? std::atoi(argv[3]) : 1;
    const bool all = wanted == "all";
    if ((family != "decoder" && family != "encoder") || step < 1 ||
        (only == sim::kShimCallKinds && !all)) {
        std::cerr << kUsage;
        return 2;
    }
    try {
        Lives lives(family);
        for (std::size_t call = 0; call < sim::kShimCallKinds; ++call) {
            if (all || only == call) {
                lives.tryEach(call, step);
            }
        }
        return lives.finish() ? 0 : 1;
    } catch (const std::exception &error) {
        std::cerr << "tidewell_failing_calls: " << error.what() << '\n';
        return 1;
    }
}
