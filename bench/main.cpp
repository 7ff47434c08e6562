// Measures the daemon against the bare loop in a sandbox of its own and writes what came
// out into a directory: a chapter of the document each, decoder.dat and encoder.dat for
// the charts.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include <srt/srt.h>

#include "bench/api_run.h"
#include "bench/comparison.h"
#include "bench/idle_run.h"
#include "bench/machine.h"
#include "bench/single_run.h"
#include "sim/sandbox.h"

namespace {

namespace fs = std::filesystem;
using bench::Program;

const std::set<std::string> kChapters = {"decoder", "encoder", "api", "idle", "single"};
constexpr std::size_t kApiClients = 8;
constexpr std::uint64_t kApiRate = 50;  // Mbit/s
constexpr double kIdleSeconds = 10;
constexpr int kWakes = 20;
constexpr int kStarts = 5;
constexpr std::uint64_t kLossyRate = 20;  // Mbit/s
constexpr double kLossySeconds = 20;
constexpr std::uint64_t kTracedRate = 20;  // Mbit/s

struct Settings {
    int rounds = 5;
    bench::Span span{.seconds = 3, .patience_s = 20};
    fs::path output;
    std::set<std::string> chapters;  // empty: all
};

void compareFamily(const Settings &settings, bool encoder, std::ostream &out) {
    const char *family = encoder ? "encoder" : "decoder";
    const auto comparisons = bench::compareStreams(encoder, settings.rounds, settings.span);
    out << "![CPU and latency of the " << family << "](performance-" << family << ".svg)\n\n";
    bench::writeTable(out, comparisons);
    std::ofstream chart(settings.output / (std::string(family) + ".dat"));
    bench::writeChartData(chart, comparisons);
}

void writeApiRow(std::size_t clients, const std::vector<bench::ApiResult> &rounds,
                 std::ostream &out) {
    const auto middle = [&](const auto &figure) {
        std::vector<double> values;
        std::transform(rounds.begin(), rounds.end(), std::back_inserter(values), figure);
        return bench::median(std::move(values));
    };
    using Result = bench::ApiResult;
    const auto lost = std::accumulate(
        rounds.begin(), rounds.end(), std::uint64_t{0},
        [](std::uint64_t sum, const Result &round) { return sum + round.stream.lost; });
    out << "| " << clients << " | "
        << std::lround(middle([](const Result &r) { return r.replies_per_s; })) << " | "
        << middle([](const Result &r) { return r.median_ms; }) << " | "
        << middle([](const Result &r) { return r.p99_ms; }) << " | " << lost << " | "
        << middle([](const Result &r) { return r.stream.pump_share * 100; }) << " % | "
        << std::lround(
               middle([](const Result &r) { return r.stream.p99_us - r.stream.fastest_us; }))
        << " |\n";
}

void measureApi(const Settings &settings, std::ostream &out) {
    out << "Beside a decoder's stream of " << kApiRate
        << " Mbit/s:\n\n| Clients that ask all the time | Replies a second | Median, ms | p99, ms "
           "| Datagrams lost | Pump's share of a core | Stream's p99 above fastest, us |\n"
           "|---|---|---|---|---|---|---|\n";
    std::map<std::size_t, std::vector<bench::ApiResult>> rounds;
    for (int round = 0; round < settings.rounds; ++round) {
        for (const std::size_t clients : {std::size_t{0}, kApiClients}) {
            const auto result = bench::streamBesideClients(clients, kApiRate, settings.span);
            rounds[clients].push_back(result);
            fprintf(stderr, "round %d, %zu clients: %.0f replies/s, p99 %.2f ms, lost %lu\n",
                    round + 1, clients, result.replies_per_s, result.p99_ms,
                    static_cast<unsigned long>(result.stream.lost));
        }
    }
    for (const auto &[clients, results] : rounds) {
        writeApiRow(clients, results, out);
    }
}

void measureIdle(std::ostream &out) {
    out << "| State | Share of a core |\n|---|---|\n";
    for (const bool encoder : {false, true}) {
        for (const auto &state : bench::idleStates(encoder)) {
            const double share = bench::idleShare(state, kIdleSeconds);
            fprintf(stderr, "%-60s %.2f %%\n", state.name.c_str(), share * 100);
            out << "| " << state.name << " | " << share * 100 << " % |\n";
        }
    }
}

void measureWake(std::ostream &out, bench::Device silence, const char *name) {
    const auto delays_us = bench::wakeDelays(silence, kWakes);
    out << "| First data after " << name << " reaches the wire, us | " << bench::median(delays_us)
        << " (worst of " << kWakes << ": " << *std::max_element(delays_us.begin(), delays_us.end())
        << ") | |\n";
}

void measureStartUp(std::ostream &out) {
    std::vector<double> daemon_ms;
    std::vector<double> bare_ms;
    for (int i = 0; i < kStarts; ++i) {
        daemon_ms.push_back(bench::startUpMs(Program::daemon));
        bare_ms.push_back(bench::startUpMs(Program::bare));
    }
    out << "| Start to first datagram, ms | " << bench::median(daemon_ms) << " (worst of "
        << kStarts << ": " << *std::max_element(daemon_ms.begin(), daemon_ms.end()) << ") | "
        << bench::median(bare_ms) << " |\n";
}

void measureLoss(std::ostream &out) {
    const auto daemon = bench::lossyStream(Program::daemon, kLossyRate, kLossySeconds);
    const auto bare = bench::lossyStream(Program::bare, kLossyRate, kLossySeconds);
    out << "| 1 % loss, 60 ms round trip, latency 250 ms: messages late or missing | "
        << daemon.missing << " of " << daemon.payloads << " | " << bare.missing << " of "
        << bare.payloads << " |\n";
}

void countSystemCalls(std::ostream &out) {
    for (const bool encoder : {false, true}) {
        const bench::Job job{.encoder = encoder};
        out << "| System calls of the " << (encoder ? "sending" : "receiving") << " thread per "
            << (encoder ? "read of the device" : "datagram") << " | "
            << bench::systemCallsPerRead(Program::daemon, job, kTracedRate) << " | "
            << bench::systemCallsPerRead(Program::bare, job, kTracedRate) << " |\n";
    }
}

void measureSingles(std::ostream &out) {
    out << "| What | tidewell | bare loop |\n|---|---|---|\n";
    measureStartUp(out);
    measureWake(out, bench::Device::silent, "a silent device");
    measureWake(out, bench::Device::ended, "a device that answers with nothing");
    measureLoss(out);
    countSystemCalls(out);
}

// To be read by itself, as each may come from another call.
void writeChapter(const Settings &settings, const std::string &name, const std::string &title,
                  bool in_rounds, const std::function<void(std::ostream &)> &measure) {
    if (!settings.chapters.empty() && !settings.chapters.contains(name)) {
        return;
    }
    std::ofstream out(settings.output / (name + ".md"));
    out.precision(3);
    out << "### " << title;
    if (in_rounds) {
        out << ", " << settings.rounds << " rounds of " << settings.span.seconds << " s each";
    }
    out << "\n\n" << bench::describeMachine() << '\n';
    measure(out);
}

void measureAll(const Settings &settings) {
    writeChapter(settings, "decoder", "Decoder", true,
                 [&](std::ostream &out) { compareFamily(settings, false, out); });
    writeChapter(settings, "encoder", "Encoder", true,
                 [&](std::ostream &out) { compareFamily(settings, true, out); });
    writeChapter(settings, "api", "Clients of the API", true,
                 [&](std::ostream &out) { measureApi(settings, out); });
    writeChapter(settings, "idle", "With nothing to do", false, measureIdle);
    writeChapter(settings, "single", "Single figures", false, measureSingles);
}

bool readSettings(int count, char **words, Settings &settings) {
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if (word == "--rounds" && i + 1 < count) {
            settings.rounds = atoi(words[++i]);
        } else if (word == "--seconds" && i + 1 < count) {
            settings.span.seconds = atof(words[++i]);
        } else if (word == "--patience" && i + 1 < count) {
            settings.span.patience_s = atof(words[++i]);
        } else if (settings.output.empty() && !word.starts_with('-')) {
            settings.output = fs::absolute(word);
        } else if (kChapters.contains(word)) {
            settings.chapters.insert(word);
        } else {
            return false;
        }
    }
    return !settings.output.empty() && settings.rounds > 0 && settings.span.seconds > 0;
}

}  // namespace

int main(int count, char **words) {
    Settings settings;
    if (!readSettings(count, words, settings)) {
        fputs("usage: tidewell_bench OUTPUT_DIR [decoder] [encoder] [api] [idle] [single]"
              " [--rounds N] [--seconds S] [--patience S]\n",
              stderr);
        return 2;
    }
    try {
        fs::create_directories(settings.output);
        sim::enterSandbox({settings.output});
        srt_startup();
        srt_setloglevel(LOG_CRIT);
        measureAll(settings);
        srt_cleanup();
        return 0;
    } catch (const std::exception &failure) {
        fprintf(stderr, "tidewell_bench: %s\n", failure.what());
        return 1;
    }
}
