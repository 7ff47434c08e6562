#include "sim/peer_program.h"

#include <sys/prctl.h>

#include <atomic>
#include <csignal>
#include <iostream>
#include <syslog.h>
#include <thread>
#include <vector>

#include "sim/clock.h"
#include "sim/pacer.h"
#include "sim/peer_link.h"
#include "sim/shared_object.h"
#include "sim/transport_stream.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr auto kIdle = 2ms;

std::atomic<bool> stop_requested{false};

void requestStop(int) {
    stop_requested = true;
}

std::atomic<std::atomic<bool> *> pause_switch{nullptr};

void turnPauseSwitch(int) {
    std::atomic<bool> &paused = *pause_switch.load();
    paused = !paused;
}

void runSender(PeerState &state) {
    const PeerSettings &settings = state.settings;
    prctl(PR_SET_TIMERSLACK, 1);
    PeerLink link(state);
    TsGenerator generator(settings.source_id, settings.rate_bps);
    Pacer pacer(settings.rate_bps);
    std::vector<std::uint8_t> message(settings.message_bytes);
    while (!stop_requested) {
        link.maintain();
        if (state.paused || !link.hasConnections()) {
            std::this_thread::sleep_for(kIdle);
            pacer.restart();
            continue;
        }
        std::this_thread::sleep_until(pacer.next(message.size()));
        generator.fillBytes(message.data(), message.size());
        link.send(message.data(), message.size());
    }
}

void runReceiver(PeerState &state) {
    TsChecker checker(state.received);
    PeerLink link(state);
    while (!stop_requested) {
        link.maintain();
        if (state.paused) {
            std::this_thread::sleep_for(kIdle);
            continue;
        }
        link.receive([&checker](const std::uint8_t *message, std::size_t bytes) {
            checker.take(message, bytes, monotonicNs());
        });
    }
}

}  // namespace

int runPeer(int memory) {
    std::signal(SIGTERM, requestStop);
    std::signal(SIGINT, requestStop);
    srt_startup();
    srt_setloglevel(LOG_CRIT);
    int status = 0;
    try {
        SharedObject<PeerState> state(memory);
        pause_switch = &state->paused;
        std::signal(SIGUSR1, turnPauseSwitch);
        if (state->settings.role == PeerRole::sender) {
            runSender(*state);
        } else {
            runReceiver(*state);
        }
    } catch (const std::exception &error) {
        std::cerr << "SRT far end: " << error.what() << '\n';
        status = 1;
    }
    srt_cleanup();
    return status;
}

}  // namespace sim
