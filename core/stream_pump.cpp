#include "core/stream_pump.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include "config/config_store.h"
#include "core/pacer.h"
#include "core/shared/log_ring.h"
#include "endpoints/file_input.h"
#include "endpoints/mon_thread.h"
#include "endpoints/read_limit.h"
#include "endpoints/srt_input.h"
#include "endpoints/srt_output.h"
#include "endpoints/udp_output.h"

namespace {

constexpr int kSlots = 2;
constexpr std::chrono::seconds kNoClientPause{2};  // what is read meanwhile is not kept
constexpr std::chrono::seconds kErrorPause{1};
constexpr unsigned kNoConfigSeconds = 3;

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
        if (openSlot(static_cast<std::size_t>(*parts.current_idx % kSlots))) {
            return true;
        }
    }
    return false;
}

bool StreamPump::openSlot(std::size_t slot) {
    try {
        StreamUri uri;
        if (parts.store->getUri(slot, uri) != 0) {
            parts.log->logLine("No cfg\n");
            sleep(kNoConfigSeconds);
            return false;
        }
        if (parts.udp_output != nullptr) {
            input = std::make_unique<srt_input>(uri);
        } else {
            output = std::make_unique<srt_output>(uri);
        }
    } catch (...) {  // the endpoint has said why, or was told not to open
        openFailed(slot);
        return false;
    }
    parts.log->logPrintf("SRT %s opened: %s\n", input ? "input" : "output",
                         parts.store->uriString(slot).c_str());
    return true;
}

void StreamPump::openFailed(std::size_t slot) {
    const bool decoder = parts.udp_output != nullptr;
    if (!decoder) {
        parts.log->logPrintf("SRT output failed: %s\n", parts.store->uriString(slot).c_str());
    } else if (first_failure) {
        parts.log->logPrintf("SRT open failed: %s\n", parts.store->uriString(slot).c_str());
    }
    sleep(1);
    ++*parts.current_idx;
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
            pacer.pace(static_cast<std::uint32_t>(bytes));
            parts.udp_output->write(parts.buffer, static_cast<std::size_t>(bytes));
        } else if (bytes == 0) {
            endOfStream();
            return;
        } else if (bytes != -2) {
            parts.log->logPrintf("Read returned error: %zd\n", static_cast<ssize_t>(bytes));
            return;
        }
    }
}

void StreamPump::send() {
    const StatsThread stats(output.get(), parts);
    const ReadLimit limit;
    while (!interrupted()) {
        const ssize_t bytes = parts.file_input->read(parts.buffer, parts.buffer_bytes);
        if (bytes == -2) {
            sched_yield();
            continue;
        }
        if (bytes <= 0) {
            puts("General error");
            std::this_thread::sleep_for(kErrorPause);
            return;
        }
        const int sent = output->write(parts.buffer, static_cast<int>(bytes));
        if (sent == -2) {
            std::this_thread::sleep_for(kNoClientPause);
        } else if (sent == 0) {
            endOfStream();
            return;
        }
    }
}

bool StreamPump::interrupted() const {
    return stop_flag != 0 || *parts.change_flag != 0;
}

void StreamPump::endOfStream() {
    parts.log->logLine("SRT EOS, Switching to next stream if avail.\n");
    ++*parts.current_idx;
}
