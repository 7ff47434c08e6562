// The API of a daemon under test, as a client on the unit's network meets it.
#pragma once

#include <stdexcept>
#include <string>

#include "sim/daemon.h"
#include "sim/http_client.h"

using sim::ask;
using sim::kApiPort;
using sim::RawClient;
using sim::Reply;
using sim::requestText;

inline const std::string kSuccess = "{\"status\":true,\"message\":\"Success\"}\n";

// A daemon whose API can be asked.
class ApiDaemon : public sim::Daemon {
public:
    explicit ApiDaemon(const sim::DaemonOptions &options) : Daemon(options) {
        if (!sim::apiListens()) {
            throw std::runtime_error("nobody listens on port 8000");
        }
    }
};

inline std::string jsonReply(const std::string &body, const std::string &status = "200 OK") {
    std::string length = std::to_string(body.size());
    length.resize(11, ' ');
    return "HTTP/1.1 " + status +
           "\r\nContent-Type: application/json\r\nCache-Control: no-cache\r\nContent-Length: " +
           length + "\r\n\r\n" + body;
}
