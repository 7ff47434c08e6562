// One program moving one stream for some seconds, measured.
#pragma once

#include <cstdint>
#include <functional>

#include "bench/contender.h"
#include "bench/recorder.h"

namespace bench {

// A decoder's latency is arrival at the unit - sending - configured latency. An encoder's
// is the appearance of the packet on the wire - writing to the device.
struct StreamResult {
    double cpu_s_per_gb = 0;  // user and system, per 10^9 bytes that arrived
    double pump_share = 0;    // of a core, taken by the thread that moves the data
    double fastest_us = 0;    // added latency: 1st percentile
    double median_us = 0;
    double p99_us = 0;
    std::uint64_t payloads = 0;  // that arrived
    std::uint64_t lost = 0;
    double resident_mib = 0;  // at the end
    double other_cores = 0;   // what everything else on the machine took meanwhile
};

// How long to measure. A machine that others use spoils figures: a span in which they
// took more than a little is measured again, until `patience_s` are over; the least
// disturbed one counts.
struct Span {
    double seconds = 3;
    double patience_s = 0;
};

// A port that no earlier run has used: a socket of libsrt lives on for a while.
int freshPort();

// Waits for the first payload. Errors: std::runtime_error if none comes.
void awaitStream(const Recorder &recorder);

// Called with the program in the middle of its stream.
using Visit = std::function<void(const Contender &)>;

// `job.port` is overridden. The stream has run for a while before the measurement
// starts, so that nothing of the start shows in it. A visit comes last.
// Errors: std::runtime_error if no data comes or the program ends.
StreamResult runStream(Program program, Job job, std::uint64_t rate_mbit, const Span &span,
                       const Visit &visit = nullptr);

}  // namespace bench
