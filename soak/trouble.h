// What can go wrong around a daemon, one entry a misfortune.
#pragma once

#include <chrono>
#include <span>

#include "soak/soaked_daemon.h"
#include "soak/soaked_unit.h"

struct Trouble {
    const char *name;
    // Makes the trouble and ends it again.
    void (*strike)(SoakedDaemon &daemon, SoakedUnit &unit);
    // From its end until the stream is back.
    std::chrono::milliseconds bound;
};

std::span<const Trouble> allTroubles();
