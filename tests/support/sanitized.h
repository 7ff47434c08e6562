// What a test must know of the build that it is part of.
#pragma once

#include <chrono>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// A stop takes three seconds at most on a machine that is not busy with other tests.
constexpr std::chrono::seconds kStopLimit{kSanitized ? 15 : 6};
