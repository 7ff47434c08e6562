// What the unit is: product, serial number, versions and addresses.
#pragma once

#include <string>

#include "http/reply.h"

struct ApiContext;

http::Reply serveCapabilities(ApiContext &context, const http::Request &request);

// The serial number in the kernel's command line: what stands behind "serialnum=" up to the
// next blank. Empty if it is not there.
std::string serialNumber(const std::string &command_line);

// The IPv4 address of a network interface; "0.0.0.0" if it has none or does not exist.
std::string interfaceAddress(const std::string &name);
