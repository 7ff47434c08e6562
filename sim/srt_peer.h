// A real SRT far end for the product, as a process that its owner can pause, freeze,
// kill and bring back. Base of SrtSender and SrtReceiver.
#pragma once

#include <memory>
#include <string>

#include "sim/child_process.h"
#include "sim/peer_state.h"
#include "sim/shared_object.h"

namespace sim {

struct PeerOptions {
    std::uint16_t port = 0;
    PeerMode mode = PeerMode::listener;
    std::string host = "127.0.0.1";
    std::string stream_id = {};  // a caller presents it, a listener admits nobody else
    std::string passphrase = {};
    int pbkeylen = 0;
    int latency_ms = 120;
};

// A listener takes client after client, and several at a time; a caller tries again
// until it is let in, and again when it is thrown out.
//
// Threads: one.
// Errors:  std::runtime_error if the far end cannot be set up, its own words on stderr.
class SrtPeer {
public:
    SrtPeer(const SrtPeer &) = delete;
    SrtPeer &operator=(const SrtPeer &) = delete;

    // The address with which the product meets this far end; `more` is appended to the
    // query, such as "&streamrate=8000000".
    [[nodiscard]] std::string uri(const std::string &more = "") const;
    [[nodiscard]] pid_t pid() const;

    // Alive and silent (a sender) or alive and not reading (a receiver).
    void pause() { state->paused = true; }
    void resume() { state->paused = false; }
    // SIGUSR1 to the process turns this as well.
    [[nodiscard]] bool isPaused() const { return state->paused; }
    // Stopped like a machine that hangs: it does not even answer.
    void freeze();
    void thaw();
    // Gone without a goodbye.
    void vanish();
    // Closes its connections in order and ends.
    void breakOff();
    // Comes back with the same settings after vanish() or breakOff().
    void restart();
    // False also after somebody else has ended it.
    bool isRunning();

    [[nodiscard]] bool isConnected() const { return state->connections > 0; }
    [[nodiscard]] std::uint32_t connectionsMade() const { return state->connections_made; }
    [[nodiscard]] const LinkCounters &link() const { return state->link; }

protected:
    SrtPeer(PeerRole role, const PeerOptions &options);
    ~SrtPeer();

    SharedObject<PeerState> state;

    // The derived constructor calls it once the settings are whole.
    void start();

private:
    std::unique_ptr<ChildProcess> process;  // null before start()
};

}  // namespace sim
