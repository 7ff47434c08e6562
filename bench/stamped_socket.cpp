#include "bench/stamped_socket.h"

#include <array>
#include <chrono>
#include <cstring>
#include <ctime>
#include <utility>

#include <linux/if_ether.h>
#include <sys/socket.h>

#include "bench/stamp.h"
#include "sim/clock.h"
#include "sim/loopback.h"
#include "sim/system_error.h"

namespace bench {
namespace {

constexpr std::uint16_t kUnitPort = 9261;
constexpr int kBufferBytes = 64 << 20;
constexpr auto kPause = std::chrono::milliseconds(1);

std::int64_t nanoseconds(const timespec &time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// What to take from the kernel's stamps, CLOCK_REALTIME, to have CLOCK_MONOTONIC.
std::int64_t realtimeLead() {
    timespec realtime{};
    clock_gettime(CLOCK_REALTIME, &realtime);
    return nanoseconds(realtime) - static_cast<std::int64_t>(sim::monotonicNs());
}

sim::FileDescriptor openStamped(int family, int protocol) {
    sim::FileDescriptor fd(
        sim::check(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, protocol), "socket"));
    const int yes = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kBufferBytes, sizeof kBufferBytes);
    sim::check(setsockopt(fd.get(), SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes), "time stamps");
    return fd;
}

}  // namespace

sim::FileDescriptor openUnitInput() {
    sim::FileDescriptor fd = openStamped(AF_INET, 0);
    sim::check(sim::bindTo(fd.get(), kUnitPort), "bind the unit's input");
    return fd;
}

// With this protocol only arriving packets show, each once.
sim::FileDescriptor openWireTap() {
    return openStamped(AF_PACKET, htons(ETH_P_IP));
}

StampedSocket::StampedSocket(sim::FileDescriptor socket, std::size_t header, Recorder &into)
    : fd(std::move(socket)), header_bytes(header), recorder(into), worker([this] { run(); }) {}

StampedSocket::~StampedSocket() {
    stop = true;
    worker.join();
}

void StampedSocket::run() {
    while (!stop) {
        if (!drain()) {
            std::this_thread::sleep_for(kPause);
        }
    }
}

// False if nothing was there.
bool StampedSocket::drain() {
    std::array<char, 1500> datagram;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(timespec))> control;
    const std::int64_t lead = realtimeLead();
    for (bool any = false;; any = true) {
        iovec part{datagram.data(), datagram.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t bytes = recvmsg(fd.get(), &message, MSG_DONTWAIT);
        if (bytes < 0) {
            return any;
        }
        const cmsghdr *stamp = CMSG_FIRSTHDR(&message);
        if (stamp != nullptr && static_cast<std::size_t>(bytes) == header_bytes + kPayloadBytes) {
            timespec arrival;
            std::memcpy(&arrival, CMSG_DATA(stamp), sizeof arrival);
            recorder.take(datagram.data() + header_bytes, kPayloadBytes,
                          static_cast<std::uint64_t>(nanoseconds(arrival) - lead));
        }
    }
}

}  // namespace bench
