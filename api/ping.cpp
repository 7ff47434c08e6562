#include "api/ping.h"

#include <cstdio>
#include <ctime>
#include <optional>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "api/json_message.h"
#include "core/shared/descriptor.h"

namespace {

constexpr int kTtl = 64;
constexpr std::uint8_t kEchoRequestType = 8;
constexpr std::size_t kIdentifierOffset = 4;
constexpr std::size_t kPayloadOffset = 8;
constexpr std::size_t kChecksumOffset = 2;
constexpr std::size_t kReplyBytes = 128;
constexpr std::uint8_t kPlainIpv4Header = 0x45;  // version 4, five words: no options

std::optional<sockaddr_in> resolve(const std::string &host) {
    const hostent *entry = gethostbyname(host.c_str());
    if (entry == nullptr || entry->h_addr_list[0] == nullptr ||
        entry->h_length != static_cast<int>(sizeof(in_addr))) {
        return std::nullopt;
    }
    sockaddr_in address{};
    address.sin_family = static_cast<sa_family_t>(entry->h_addrtype);
    memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof address.sin_addr);
    return address;
}

void setOptions(int sock) {
    if (setsockopt(sock, IPPROTO_IP, IP_TTL, &kTtl, sizeof kTtl) != 0) {
        puts("Setting socket options to TTL failed!");
    }
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

timespec now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

long double milliseconds(const timespec &from, const timespec &to) {
    return static_cast<long double>(to.tv_sec - from.tv_sec) * 1000 +
           static_cast<long double>(to.tv_nsec - from.tv_nsec) / 1'000'000.0L;
}

// One request, one wait; nothing received leaves zeroes, which are no answer.
void exchange(int sock, const sockaddr_in &address, PingResult &result) {
    const auto packet = makeEchoRequest(static_cast<std::uint16_t>(getpid()));
    const timespec start = now();
    if (sendto(sock, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&address),
               sizeof address) <= 0) {
        puts("Packet Sending Failed!");
        result.message = "Packet Send Failed";
        return;
    }
    std::array<std::uint8_t, kReplyBytes> reply{};
    recvfrom(sock, reply.data(), reply.size(), 0, nullptr, nullptr);
    const timespec end = now();
    if (reply[0] != kPlainIpv4Header || reply[1] != 0) {
        printf("Error... Packet received with ICMP type %d code %d\n", reply[0], reply[1]);
        result.message = "Packet Type failed";
        return;
    }
    result.time = milliseconds(start, end);
    result.ttl = kTtl;
    result.success = true;
}

http::Reply reply(const PingResult &result) {
    char time[32];
    snprintf(time, sizeof time, "%Lf", result.time);
    Json::Value document;
    document["host"] = result.host;
    document["ip"] = result.ip;
    document["message"] = result.message;
    document["success"] = result.success;
    document["time"] = time;
    document["ttl"] = result.ttl;
    return replyJson(document);
}

// The Internet checksum, of bytes whose checksum field is 0.
std::uint16_t checksum(const std::array<std::uint8_t, kEchoBytes> &packet) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < packet.size(); i += 2) {
        sum += static_cast<std::uint32_t>(packet[i] << 8 | packet[i + 1]);
    }
    sum = (sum >> 16) + (sum & 0xFFFF);
    sum += sum >> 16;
    return static_cast<std::uint16_t>(~sum);
}

void putWord(std::array<std::uint8_t, kEchoBytes> &packet, std::size_t offset, std::uint16_t word) {
    packet[offset] = static_cast<std::uint8_t>(word >> 8);
    packet[offset + 1] = static_cast<std::uint8_t>(word);
}

}  // namespace

http::Reply servePing(ApiContext &, const http::Request &request) {
    PingResult result;
    const Json::Value host = memberOf(request, "host");
    if (host.isString()) {
        pingHost(host.asString(), result);
    }
    return reply(result);
}

http::Reply replyNoPing() {
    return reply(PingResult{});
}

void pingHost(const std::string &host, PingResult &result) {
    result.host = host;
    const std::optional<sockaddr_in> address = resolve(host);
    if (!address) {
        result.message = "DNS lookup failed";
        return;
    }
    const Descriptor sock(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (!sock.isOpen()) {
        result.message = "Could not create socket";
        return;
    }
    result.ip = inet_ntoa(address->sin_addr);
    setOptions(sock.number());
    exchange(sock.number(), *address, result);
}

std::array<std::uint8_t, kEchoBytes> makeEchoRequest(std::uint16_t identifier) {
    std::array<std::uint8_t, kEchoBytes> packet{};
    packet[0] = kEchoRequestType;
    putWord(packet, kIdentifierOffset, identifier);
    for (std::size_t i = kPayloadOffset; i < kEchoBytes - 1; ++i) {
        packet[i] = static_cast<std::uint8_t>('0' + (i - kPayloadOffset));
    }
    putWord(packet, kChecksumOffset, checksum(packet));
    return packet;
}
