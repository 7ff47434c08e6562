// What the daemon costs while there is nothing to do, and how soon it wakes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/contender.h"

namespace bench {

enum class Device { none, silent, ended };  // ended: each read answers at once with nothing

struct IdleState {
    std::string name;
    Job job;
    bool peer = false;  // a far end is connected and says nothing
    Device device = Device::none;
};

std::vector<IdleState> idleStates(bool encoder);

// Share of one core, 0.01 for a hundredth, over `seconds`.
double idleShare(const IdleState &state, double seconds);

// From writing one payload to the device, after a silence, to its packet on the wire,
// microseconds: one value for each of `times` silences.
std::vector<double> wakeDelays(Device silence, int times);

}  // namespace bench
