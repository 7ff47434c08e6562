// Measurements that each give one figure or two.
#pragma once

#include <cstdint>
#include <string>

#include "bench/contender.h"

namespace bench {

// Milliseconds from starting the program to its first datagram at the unit's input, as a
// caller with a latency of 120 ms; the far end sends from the moment it is called.
double startUpMs(Program program);

struct LossResult {
    std::uint64_t payloads = 0;  // that should have arrived
    std::uint64_t missing = 0;   // of them: late or lost for good
};

// An encoder's stream over a link that loses one packet in a hundred each way and takes
// 60 ms there and back, with a latency of 250 ms. The same packets go lost every time.
LossResult lossyStream(Program program, std::uint64_t rate_mbit, double seconds);

// The system calls of the thread that moves the data, each kind per read from its source:
// "read 1.00, poll 1.00". Empty if there is no strace.
std::string systemCallsPerRead(Program program, const Job &job, std::uint64_t rate_mbit);

}  // namespace bench
