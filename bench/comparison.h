// The stream measurements of one family: every program in turns, round after round, and
// what the rounds say together.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "bench/stream_run.h"

namespace bench {

// One stream and the programs that carried it.
struct Comparison {
    struct Contestant {
        Program program = Program::daemon;
        std::vector<StreamResult> rounds;
    };

    Job job;
    std::uint64_t rate_mbit = 0;
    std::vector<Contestant> contestants;  // programsFor(job): the daemon, the bare loop, others
};

// `rounds` turns of all streams of the family; each round begins with another program.
// Says on stderr how far it is. Errors: those of runStream().
std::vector<Comparison> compareStreams(bool encoder, int rounds, const Span &span);

// A Markdown table. Ratios and differences are taken within each round, against the bare
// loop of the same round; every figure is the median of the rounds, losses are the sum.
void writeTable(std::ostream &out, const std::vector<Comparison> &comparisons);

// One line a stream for the chart: name in quotes, then CPU and median latency of each
// program (a decoder's above its fastest), NaN for one that did not take part.
void writeChartData(std::ostream &out, const std::vector<Comparison> &comparisons);

}  // namespace bench
