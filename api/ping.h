// Can the unit reach a host? One ICMP echo request, one second of patience.
//
// The test of what comes back is a loose one: the first IPv4 packet without options and with
// type of service 0 that the raw socket delivers counts as the answer, whoever sent it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "http/reply.h"

struct ApiContext;

struct PingResult {
    std::string host;      // the name asked for
    std::string ip;        // dotted quad
    std::int32_t ttl = 0;  // as sent; set on success only
    long double time = 0;  // round trip in milliseconds
    std::string message;   // what went wrong
    bool success = false;
};

// Pings the host in the body's member `host`. Holds the API for a second at most, and before
// that for as long as the name takes to resolve.
http::Reply servePing(ApiContext &context, const http::Request &request);

// The reply to a request that names no host.
http::Reply replyNoPing();

// Needs the right to open a raw socket. Fills the record, whatever happens.
void pingHost(const std::string &host, PingResult &result);

inline constexpr std::size_t kEchoBytes = 64;

// The echo request, checksum included.
std::array<std::uint8_t, kEchoBytes> makeEchoRequest(std::uint16_t identifier);
