#include "core/shared/call_limit.h"

#include <csignal>

#include <unistd.h>

namespace {

constexpr itimerspec kEverySecond{.it_interval = {1, 0}, .it_value = {1, 0}};

void justInterrupt(int) {}

}  // namespace

CallLimit::CallLimit() {
    struct sigaction action {};  // without SA_RESTART
    action.sa_handler = justInterrupt;
    sigaction(SIGALRM, &action, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGALRM;
    event._sigev_un._tid = gettid();
    running = timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;
    if (running) {
        timer_settime(timer, 0, &kEverySecond, nullptr);
    }
}

CallLimit::~CallLimit() {
    if (running) {
        timer_delete(timer);
    }
}
