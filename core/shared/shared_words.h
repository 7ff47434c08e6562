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

// Which address is in use: the word's remainder by 2 is the slot, 0 primary, 1 backup.
//
// The word only grows (and wraps), so that a choice made by hand is told from the word that an
// attempt began with, also where it names the same slot: what was chosen meanwhile wins over a
// failover.
class CurrentIdx {
public:
    [[nodiscard]] std::uint32_t load() const { return word; }
    static int slotOf(std::uint32_t loaded) { return static_cast<int>(loaded % 2); }

    // The pump's failover from the word that it began with.
    void moveOn(std::uint32_t began_with) {
        word.compare_exchange_strong(began_with, began_with + 1);
    }

    // The API thread's choice. Requires: `slot` is 0 or 1.
    void choose(int slot) {
        std::uint32_t before = word;
        while (
            !word.compare_exchange_weak(before, (before | 1) + 1 + static_cast<unsigned>(slot))) {
        }
    }

private:
    std::atomic<std::uint32_t> word{0};  // atomic: both threads write
};
