// Another CLOCK_MONOTONIC for programs under test.
//
// The product paces a stream on a 32-bit count of microseconds, which wraps every
// 71.6 minutes. A test cannot wait for that; a time namespace moves the clock.
#pragma once

#include <chrono>

namespace sim {

// Shifts CLOCK_MONOTONIC for every process that the calling thread starts from here
// on; the caller's own clock stays. Works once a process: the shift is fixed by the
// first child.
// Requires: CAP_SYS_ADMIN in the user namespace, which enterSandbox() gives.
// Errors:   std::system_error.
void enterTimeNamespace(std::chrono::nanoseconds offset);

// The shift after which the microsecond count passes 2^32 in `delay` from now.
std::chrono::nanoseconds offsetToWrapAfter(std::chrono::milliseconds delay);

}  // namespace sim
