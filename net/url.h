// The parts of an address like http://127.0.0.1:8000/path that a connection is made from.
#pragma once

#include <netinet/in.h>

#include <optional>
#include <string_view>

namespace net {

// Numeric hosts, "localhost" and, for all addresses, an empty host. Nothing is looked up:
// a name server that does not answer would hold the calling thread.
std::optional<sockaddr_in> socketAddress(const char *url);

}  // namespace net
