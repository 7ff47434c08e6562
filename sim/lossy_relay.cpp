#include "sim/lossy_relay.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "sim/loopback.h"

namespace sim {
namespace {

constexpr int kStopCheckMs = 50;
constexpr int kBufferBytes = 4 * 1024 * 1024;

FileDescriptor bound(std::uint16_t port) {
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    check(socket.get(), "open the relay");
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof kBufferBytes);
    check(bindTo(socket.get(), port), "bind the relay to port " + std::to_string(port));
    return socket;
}

}  // namespace

LossyRelay::LossyRelay(const RelayOptions &relay_options)
    : options(relay_options), caller_side(bound(options.port)), target_side(bound(0)),
      thread([this] { run(); }) {}

LossyRelay::~LossyRelay() {
    stop = true;
    thread.join();
}

void LossyRelay::run() {
    while (!stop) {
        std::array<pollfd, 2> sides{
            {{caller_side.get(), POLLIN, 0}, {target_side.get(), POLLIN, 0}}};
        poll(sides.data(), sides.size(), millisecondsToNext());
        takeFrom(caller_side, true);
        takeFrom(target_side, false);
        sendDue();
    }
}

int LossyRelay::millisecondsToNext() const {
    if (on_the_way.empty()) {
        return kStopCheckMs;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(on_the_way.front().due - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, kStopCheckMs));
}

void LossyRelay::takeFrom(const FileDescriptor &socket, bool to_target) {
    std::array<std::uint8_t, 2048> datagram{};
    sockaddr_in from{};
    socklen_t from_bytes = sizeof from;
    ssize_t bytes = 0;
    while ((bytes = recvfrom(socket.get(), datagram.data(), datagram.size(), 0,
                             reinterpret_cast<sockaddr *>(&from), &from_bytes)) >= 0) {
        if (to_target) {
            caller = from;
        }
        const bool lose = std::uniform_real_distribution<>(0, 100)(dice) < options.loss_percent;
        if (is_cut || lose) {
            ++lost_count;
        } else {
            on_the_way.push_back({Clock::now() + options.delay,
                                  to_target,
                                  {datagram.begin(), datagram.begin() + bytes}});
        }
        from_bytes = sizeof from;
    }
}

void LossyRelay::sendDue() {
    const sockaddr_in target = loopback(options.target_port);
    for (; !on_the_way.empty() && on_the_way.front().due <= Clock::now(); on_the_way.pop_front()) {
        const Datagram &datagram = on_the_way.front();
        const FileDescriptor &socket = datagram.to_target ? target_side : caller_side;
        const sockaddr_in &address = datagram.to_target ? target : caller;
        sendto(socket.get(), datagram.bytes.data(), datagram.bytes.size(), 0,
               reinterpret_cast<const sockaddr *>(&address), sizeof address);
        ++carried_count;
    }
}

}  // namespace sim
