#include "bench/comparison.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iomanip>
#include <numeric>

namespace bench {
namespace {

constexpr std::size_t kBareLoop = 1;  // its place among the contestants
constexpr std::size_t kMostContestants = 3;

using Figure = std::function<double(const StreamResult &)>;
using Merge = std::function<double(double, double)>;

double cpu(const StreamResult &result) {
    return result.cpu_s_per_gb;
}

double latency(const StreamResult &result) {
    return result.median_us;
}

double medianAboveFastest(const StreamResult &result) {
    return result.median_us - result.fastest_us;
}

double p99AboveFastest(const StreamResult &result) {
    return result.p99_us - result.fastest_us;
}

double otherCores(const StreamResult &result) {
    return result.other_cores;
}

double resident(const StreamResult &result) {
    return result.resident_mib;
}

double over(const Comparison::Contestant &contestant, const Figure &figure) {
    std::vector<double> values;
    std::transform(contestant.rounds.begin(), contestant.rounds.end(), std::back_inserter(values),
                   figure);
    return median(std::move(values));
}

double against(const Comparison::Contestant &bare, const Comparison::Contestant &contestant,
               const Figure &figure, const Merge &merge) {
    std::vector<double> values;
    std::transform(contestant.rounds.begin(), contestant.rounds.end(), bare.rounds.begin(),
                   std::back_inserter(values),
                   [&](const StreamResult &one, const StreamResult &other) {
                       return merge(figure(one), figure(other));
                   });
    return median(std::move(values));
}

std::uint64_t lost(const Comparison::Contestant &contestant) {
    return std::accumulate(
        contestant.rounds.begin(), contestant.rounds.end(), std::uint64_t{0},
        [](std::uint64_t sum, const StreamResult &result) { return sum + result.lost; });
}

const char *wordFor(Role role) {
    return role == Role::caller ? "caller" : "listener";
}

void writeRow(std::ostream &out, const Comparison &comparison,
              const Comparison::Contestant &contestant) {
    const auto &bare = comparison.contestants[kBareLoop];
    out << std::fixed << "| " << wordFor(comparison.job.role) << " | " << comparison.rate_mbit
        << " | " << nameOf(contestant.program) << " | " << std::setprecision(2)
        << over(contestant, cpu) << " | " << against(bare, contestant, cpu, std::divides<>())
        << " | " << std::setprecision(0) << over(contestant, latency) << " | " << std::showpos
        << against(bare, contestant, latency, std::minus<>()) << std::noshowpos << " | "
        << over(contestant, medianAboveFastest) << " | " << over(contestant, p99AboveFastest)
        << " | " << lost(contestant) << " | " << std::setprecision(1) << over(contestant, resident)
        << " | " << std::setprecision(2) << over(contestant, otherCores) << " |\n";
}

void measureRound(Comparison &comparison, int round, const Span &span) {
    const std::size_t count = comparison.contestants.size();
    for (std::size_t turn = 0; turn < count; ++turn) {
        auto &contestant = comparison.contestants[(turn + static_cast<std::size_t>(round)) % count];
        const StreamResult result =
            runStream(contestant.program, comparison.job, comparison.rate_mbit, span);
        contestant.rounds.push_back(result);
        fprintf(stderr,
                "round %d, %s %s, %3u Mbit/s, %-26s %6.2f s/GB %7.0f us, lost %lu (others %.2f)\n",
                round + 1, comparison.job.encoder ? "encoder" : "decoder",
                wordFor(comparison.job.role), static_cast<unsigned>(comparison.rate_mbit),
                nameOf(contestant.program), result.cpu_s_per_gb, result.median_us,
                static_cast<unsigned long>(result.lost), result.other_cores);
    }
}

Comparison makeComparison(bool encoder, Role role, std::uint64_t rate_mbit) {
    Comparison comparison{
        .job = {.encoder = encoder, .role = role}, .rate_mbit = rate_mbit, .contestants = {}};
    for (const Program program : programsFor(comparison.job)) {
        comparison.contestants.push_back({program, {}});
    }
    return comparison;
}

}  // namespace

std::vector<Comparison> compareStreams(bool encoder, int rounds, const Span &span) {
    std::vector<Comparison> comparisons;
    for (const Role role : {Role::caller, Role::listener}) {
        for (const std::uint64_t rate_mbit : {std::uint64_t{20}, std::uint64_t{100}}) {
            comparisons.push_back(makeComparison(encoder, role, rate_mbit));
        }
    }
    if (!encoder) {
        comparisons.push_back(makeComparison(encoder, Role::caller, 400));
    }
    for (int round = 0; round < rounds; ++round) {
        for (Comparison &comparison : comparisons) {
            measureRound(comparison, round, span);
        }
    }
    return comparisons;
}

void writeTable(std::ostream &out, const std::vector<Comparison> &comparisons) {
    out << "| Mode | Mbit/s | Program | CPU s/GB | Ratio | Latency, us | Over bare loop, us "
           "| Median above fastest, us | p99 above fastest, us | Lost | Resident, MiB | Others, "
           "cores |\n"
           "|---|---|---|---|---|---|---|---|---|---|---|---|\n";
    for (const Comparison &comparison : comparisons) {
        for (const auto &contestant : comparison.contestants) {
            writeRow(out, comparison, contestant);
        }
    }
}

void writeChartData(std::ostream &out, const std::vector<Comparison> &comparisons) {
    for (const Comparison &comparison : comparisons) {
        out << '"' << wordFor(comparison.job.role) << "\\n" << comparison.rate_mbit << " Mbit/s\"";
        const Figure delay = comparison.job.encoder ? latency : medianAboveFastest;
        for (const auto &figure : {Figure(cpu), delay}) {
            for (std::size_t i = 0; i < kMostContestants; ++i) {
                out << ' ';
                if (i < comparison.contestants.size()) {
                    out << over(comparison.contestants[i], figure);
                } else {
                    out << "NaN";
                }
            }
        }
        out << '\n';
    }
}

}  // namespace bench
