// The three words that threads share without a lock. Each is one atomic word, so
// that a signal handler, the API thread and the pump may touch it at any time.
#pragma once

#include <atomic>
#include <cstdint>

// Asks the whole process to end. Raised to 1 by the stop signals and by the API's
// restart route, polled by the pump, the stats and the API thread, never lowered.
extern std::atomic<int> stop_flag;
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler stores to it");

// "Close the stream and open it anew." API thread raises to 1, pump lowers to 0.
using ChangeFlag = std::atomic<int>;

// Which address is in use: its remainder by 2 is the slot, 0 primary, 1 backup.
// The pump adds 1 to fail over, so the word grows; the API thread stores a slot.
using CurrentIdx = std::atomic<std::int32_t>;
