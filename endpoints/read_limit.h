// Keeps a silent device from holding the thread that reads it.
//
// Asking poll() before each read would do the same for one system call more, which costs
// a tenth of a whole sender's CPU time at 100 Mbit/s, and would not help where a driver has
// no poll support.
#pragma once

#include <ctime>

// While it lives, a signal comes to the thread that made it once a second, and whatever
// system call blocks there then ends with EINTR. What must not be cut short goes on by itself:
// std::this_thread::sleep_for() does, sleep() does not.
//
// Threads: the one that is interrupted. One at a time: SIGALRM is its own.
// Errors:  none; without a timer reads last until data comes.
class ReadLimit {
public:
    ReadLimit();
    ~ReadLimit();
    ReadLimit(const ReadLimit &) = delete;
    ReadLimit &operator=(const ReadLimit &) = delete;

private:
    timer_t timer{};
    bool running = false;
};
