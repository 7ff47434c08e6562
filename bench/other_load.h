// How much of the machine went to anything but the measurement: on a machine that is
// shared, a figure is worth something only if this was little.
#pragma once

#include "bench/contender.h"

namespace bench {

// From its making on. Threads: one.
class OtherLoad {
public:
    explicit OtherLoad(const Contender &watched);

    // In cores, on average: 1 is one core in full use by others. The kernel's own share of
    // moving the stream is counted partly here.
    [[nodiscard]] double cores() const;

private:
    [[nodiscard]] double othersSeconds() const;

    const Contender &contender;
    const double start_s;
    const double others_start_s;
};

}  // namespace bench
