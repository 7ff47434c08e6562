#include "bench/far_socket.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "sim/loopback.h"

namespace bench {
namespace {

constexpr int kCallLimitMs = 1000;
constexpr int kReceiveLimitMs = 100;  // until a receiver looks at its stop word
constexpr auto kAcceptPause = std::chrono::milliseconds(1);

SRTSOCKET createSocket(int latency_ms) {
    const SRTSOCKET sock = srt_create_socket();
    srt_setsockflag(sock, SRTO_LATENCY, &latency_ms, sizeof latency_ms);
    srt_setsockflag(sock, SRTO_CONNTIMEO, &kCallLimitMs, sizeof kCallLimitMs);
    srt_setsockflag(sock, SRTO_RCVTIMEO, &kReceiveLimitMs, sizeof kReceiveLimitMs);
    return sock;
}

}  // namespace

FarSocket::FarSocket(Role far_role, int peer_port, int delay_ms)
    : role(far_role), port(peer_port), latency_ms(delay_ms) {
    if (role == Role::listener) {
        listen();
    }
}

FarSocket::~FarSocket() {
    closePeer();
    if (listener != SRT_INVALID_SOCK) {
        srt_close(listener);
    }
}

bool FarSocket::meet(const std::atomic<bool> &stop) {
    closePeer();
    while (!stop) {
        if (role == Role::caller ? tryCall() : tryAccept()) {
            return true;
        }
    }
    return false;
}

void FarSocket::closePeer() {
    if (peer != SRT_INVALID_SOCK) {
        srt_close(peer);
        peer = SRT_INVALID_SOCK;
    }
}

void FarSocket::listen() {
    const int no = 0;
    const sockaddr_in address = sim::loopback(static_cast<in_port_t>(port));
    listener = createSocket(latency_ms);
    srt_setsockflag(listener, SRTO_RCVSYN, &no, sizeof no);
    if (srt_bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        srt_listen(listener, 1) != 0) {
        throw std::runtime_error("listen on " + std::to_string(port) + ": " +
                                 srt_getlasterror_str());
    }
}

bool FarSocket::tryCall() {
    const sockaddr_in address = sim::loopback(static_cast<in_port_t>(port));
    peer = createSocket(latency_ms);
    if (srt_connect(peer, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        return true;
    }
    closePeer();
    return false;
}

bool FarSocket::tryAccept() {
    peer = srt_accept(listener, nullptr, nullptr);
    if (peer == SRT_INVALID_SOCK) {
        std::this_thread::sleep_for(kAcceptPause);
        return false;
    }
    const int yes = 1;
    srt_setsockflag(peer, SRTO_RCVSYN, &yes, sizeof yes);
    return true;
}

}  // namespace bench
