// How long a stop may take where other tests keep the machine busy; alone it takes three
// seconds at most.
#pragma once

#include <chrono>

#include "sim/sanitized.h"

constexpr std::chrono::seconds kStopLimit{sim::kSanitized ? 15 : 6};
