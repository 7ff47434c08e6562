#include "sim/udp_sink.h"

#include <sys/socket.h>

#include <array>

#include "sim/clock.h"
#include "sim/loopback.h"
#include "sim/wait_until.h"

namespace sim {
namespace {

constexpr int kReceiveBuffer = 8 * 1024 * 1024;
constexpr timeval kStopCheck{0, 50'000};

FileDescriptor bindLoopback(std::uint16_t port) {
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    check(socket.get(), "open the decoder input");
    // Forced where the rights suffice: the test must not lose what the product sent.
    if (setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer,
                   sizeof kReceiveBuffer) != 0) {
        setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    }
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kStopCheck, sizeof kStopCheck);
    check(bindTo(socket.get(), port), "bind the decoder input to port " + std::to_string(port));
    return socket;
}

}  // namespace

UdpSink::UdpSink(std::uint16_t port)
    : socket(bindLoopback(port)), counters(std::make_unique<TsCounters>()), checker(*counters),
      thread([this] { run(); }) {}

UdpSink::~UdpSink() {
    stop = true;
    thread.join();
}

bool UdpSink::receivesFrom(std::uint32_t source) const {
    const std::uint64_t enough = counters->sources[source].packets + 70;
    return waitUntil([&] { return counters->sources[source].packets > enough; });
}

void UdpSink::run() {
    std::array<std::uint8_t, 65536> datagram{};
    while (!stop) {
        const ssize_t bytes = recv(socket.get(), datagram.data(), datagram.size(), 0);
        if (bytes >= 0) {
            checker.take(datagram.data(), static_cast<std::size_t>(bytes), monotonicNs());
        }
    }
}

}  // namespace sim
