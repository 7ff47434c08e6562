#include "core/stream_pump.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include <pthread.h>
#include <sched.h>

#include "config/config_store.h"
#include "core/pacer.h"
#include "core/shared/call_limit.h"
#include "core/shared/log_ring.h"
#include "endpoints/file_input.h"
#include "endpoints/mon_thread.h"
#include "endpoints/results.h"
#include "endpoints/srt_input.h"
#include "endpoints/srt_output.h"
#include "endpoints/udp_output.h"

namespace {

constexpr std::chrono::seconds kNoClientPause{2};  // what is read meanwhile is not kept
constexpr std::chrono::seconds kErrorPause{1};
constexpr std::chrono::seconds kNoConfigPause{3};
constexpr std::chrono::milliseconds kPortPause{500};
constexpr std::chrono::milliseconds kLongestSleep{100};

// Sleeps for so long, or until `wanted` says that it is wanted.
template <typename Wanted>
void pauseUnless(Wanted wanted, std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (!wanted() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::min(duration, kLongestSleep));
    }
}

// The stats thread beside one stream, from its start to its join.
class StatsThread {
public:
    StatsThread(proxy_srt_t *endpoint, const PumpParts &parts)
        : args{.endpoint = endpoint, .log = parts.log, .stats = parts.stats},
          running(pthread_create(&thread, nullptr, mon_thread_entry, &args) == 0) {
        if (!running) {
            parts.log->logLine("Stats thread could not be started\n");
        }
    }

    ~StatsThread() {
        args.stop = 1;
        if (running) {
            pthread_join(thread, nullptr);
        }
    }

    StatsThread(const StatsThread &) = delete;
    StatsThread &operator=(const StatsThread &) = delete;

private:
    MonitorArgs args;
    pthread_t thread{};
    const bool running;
};

}  // namespace

StreamPump::StreamPump(const PumpParts &borrowed) : parts(borrowed) {}

StreamPump::~StreamPump() = default;

void StreamPump::run() {
    while (stop_flag == 0) {
        first_failure = true;
        if (!open()) {
            return;
        }
        runStream();
        if (*parts.change_flag != 0) {
            *parts.change_flag = 0;
            parts.log->logLine("API change detected, closing/restarting\n");
        }
        input.reset();
        output.reset();
    }
}

// False if the stop flag rose first. The settings are read anew before each attempt.
bool StreamPump::open() {
    while (stop_flag == 0) {
        parts.store->reload();
        began_with = parts.current_idx->load();
        if (openSlot()) {
            return true;
        }
    }
    return false;
}

bool StreamPump::openSlot() {
    std::string address;  // the one that is tried: the store may hold another by the end
    try {
        StreamUri uri;
        const auto slot = static_cast<std::size_t>(CurrentIdx::slotOf(began_with));
        if (parts.store->getUri(slot, uri) != 0) {
            parts.log->logLine("No cfg\n");
            pauseUnless([this] { return chosenAnew(); }, kNoConfigPause);
            return false;
        }
        address = renderStreamUri(uri);
        if (parts.udp_output != nullptr) {
            input = std::make_unique<srt_input>(uri);
        } else {
            output = std::make_unique<srt_output>(uri);
        }
    } catch (int failure) {
        if (failure == kPortNotFreeYet) {
            pauseUnless([this] { return chosenAnew(); }, kPortPause);
        } else {
            openFailed(address);
        }
        return false;
    } catch (...) {  // no memory
        openFailed(address);
        return false;
    }
    parts.log->logPrintf("SRT %s opened: %s\n", input ? "input" : "output", address.c_str());
    return true;
}

void StreamPump::openFailed(const std::string &address) {
    const bool decoder = parts.udp_output != nullptr;
    if (!decoder) {
        parts.log->logPrintf("SRT output failed: %s\n", address.c_str());
    } else if (first_failure) {
        parts.log->logPrintf("SRT open failed: %s\n", address.c_str());
    }
    pauseUnless([this] { return chosenAnew(); }, kErrorPause);
    parts.current_idx->moveOn(began_with);
    first_failure = false;
}

void StreamPump::runStream() {
    if (input) {
        receive();
    } else {
        send();
    }
}

void StreamPump::receive() {
    Pacer pacer(static_cast<std::uint32_t>(input->stream_rate));
    const StatsThread stats(input.get(), parts);
    while (!interrupted()) {
        const int bytes = input->read(parts.buffer, static_cast<int>(parts.buffer_bytes));
        if (bytes > 0) {
            pacer.advance(static_cast<std::uint32_t>(bytes));
            while (!interrupted() && pacer.wait()) {
            }
            parts.udp_output->write(parts.buffer, static_cast<std::size_t>(bytes));
        } else if (bytes == kEndOfStream) {
            endOfStream();
            return;
        } else if (bytes != kNothingDone) {
            parts.log->logPrintf("Read returned error: %zd\n", static_cast<ssize_t>(bytes));
            return;
        }
    }
}

void StreamPump::send() {
    const StatsThread stats(output.get(), parts);
    const CallLimit limit;
    while (!interrupted()) {
        const ssize_t bytes = parts.file_input->read(parts.buffer, parts.buffer_bytes);
        if (bytes == kNothingDone) {
            sched_yield();
            continue;
        }
        if (bytes <= 0) {
            puts("General error");
            std::this_thread::sleep_for(kErrorPause);
            return;
        }
        if (!sendBuffer(static_cast<int>(bytes))) {
            return;
        }
    }
}

// Hands the buffer to the far end, in parts where it takes no more. False at the end of the
// stream.
bool StreamPump::sendBuffer(int bytes) {
    for (int sent = 0; sent < bytes && !interrupted();) {
        const int taken = output->write(parts.buffer + sent, bytes - sent);
        if (taken > 0) {
            sent += taken;
        } else if (taken == kNothingDone) {
            pauseUnless([this] { return interrupted(); }, kNoClientPause);
            return true;
        } else if (taken == kEndOfStream) {
            endOfStream();
            return false;
        }
    }
    return true;
}

bool StreamPump::interrupted() const {
    return stop_flag != 0 || *parts.change_flag != 0;
}

// Also where it is the same address again.
bool StreamPump::chosenAnew() const {
    return stop_flag != 0 || parts.current_idx->load() != began_with;
}

void StreamPump::endOfStream() {
    parts.log->logLine("SRT EOS, Switching to next stream if avail.\n");
    parts.current_idx->moveOn(began_with);
}
