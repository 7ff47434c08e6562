// How long a unit may take, as docs/operator.md tells it, with some room for a busy machine.
#pragma once

#include <chrono>

#include "sim/sanitized.h"

inline constexpr int kRoom = sim::kSanitized ? 3 : 1;

// A stop; during a connect as much longer as that takes.
inline constexpr std::chrono::milliseconds kOrderlyEnd{kRoom * 7'000};
// All far ends are there: the statistics end (1 s), the next address is opened, a caller calls
// again (2 s), a listening encoder looks for clients every 2 s and lets what it reads go by for
// another two.
inline constexpr std::chrono::milliseconds kReopening{kRoom * 8'000};
// One address is dead: a connect and the second after it on top.
inline constexpr std::chrono::milliseconds kNextAddress{kRoom * 12'000};
// A far end is gone without a word: libsrt's five seconds on top.
inline constexpr std::chrono::milliseconds kNoSignOfLife{kRoom * 17'000};
