// Keeps a device that gives no answer from holding the thread that asks it.
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
// Threads: the one that is interrupted. SIGALRM belongs to it, in the whole process.
// Errors:  none; without a timer calls last until there is an answer.
class CallLimit {
public:
    CallLimit();
    ~CallLimit();
    CallLimit(const CallLimit &) = delete;
    CallLimit &operator=(const CallLimit &) = delete;

private:
    timer_t timer{};
    bool running = false;
};
