#include "sim/srt_peer.h"

#include <csignal>
#include <stdexcept>

#include "sim/wait_until.h"

namespace sim {
namespace {

constexpr std::chrono::milliseconds kEndLimit{2'000};

}  // namespace

SrtPeer::SrtPeer(PeerRole role, const PeerOptions &options) {
    PeerSettings &settings = state->settings;
    settings.role = role;
    settings.mode = options.mode;
    settings.host = options.host;
    settings.port = options.port;
    settings.stream_id = options.stream_id;
    settings.passphrase = options.passphrase;
    settings.pbkeylen = options.pbkeylen;
    settings.latency_ms = options.latency_ms;
}

SrtPeer::~SrtPeer() {
    breakOff();
}

std::string SrtPeer::uri(const std::string &more) const {
    const PeerSettings &settings = state->settings;
    const bool called = settings.mode == PeerMode::listener;
    std::string text = std::string("srt://") + (called ? settings.host.get() : "0.0.0.0") + ":" +
                       std::to_string(settings.port) + "?mode=" + (called ? "caller" : "listener") +
                       "&latency=" + std::to_string(settings.latency_ms);
    if (*settings.stream_id.get() != '\0') {
        text += std::string("&streamid=") + settings.stream_id.get();
    }
    if (*settings.passphrase.get() != '\0') {
        text += std::string("&passphrase=") + settings.passphrase.get();
    }
    if (settings.pbkeylen != 0) {
        text += "&pbkeylen=" + std::to_string(settings.pbkeylen);
    }
    return text + more;
}

pid_t SrtPeer::pid() const {
    return process->pid();
}

void SrtPeer::freeze() {
    process->signal(SIGSTOP);
}

void SrtPeer::thaw() {
    process->signal(SIGCONT);
}

void SrtPeer::vanish() {
    process->kill();
    isRunning();
}

void SrtPeer::breakOff() {
    if (process) {
        process->end(kEndLimit);
        isRunning();
    }
}

void SrtPeer::restart() {
    start();
}

bool SrtPeer::isRunning() {
    const bool running = process && process->isRunning();
    if (!running) {
        state->connections = 0;
    }
    return running;
}

void SrtPeer::start() {
    state->phase = PeerPhase::starting;
    const std::string memory = std::to_string(state.descriptor());
    const bool sends = state->settings.role == PeerRole::sender;
    process.reset();
    process = std::make_unique<ChildProcess>(
        ProcessOptions{.command = {TIDEWELL_UNIT_SIM, "peer", sends ? "sender" : "receiver",
                                   std::to_string(state->settings.port), memory},
                       .inherited = {state.descriptor()}});
    waitUntil([this] { return state->phase != PeerPhase::starting || !isRunning(); });
    if (state->phase == PeerPhase::starting) {
        throw std::runtime_error("no SRT far end on port " + std::to_string(state->settings.port));
    }
}

}  // namespace sim
