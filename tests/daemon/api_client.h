// The API of a daemon under test, as a client on the unit's network meets it.
#pragma once

#include <stdexcept>
#include <string>

#include "sim/daemon.h"
#include "tests/unit/net/http_peer.h"

inline constexpr std::uint16_t kApiPort = 8000;

inline std::string requestText(const std::string &path, const std::string &body = "",
                               const std::string &method = "POST") {
    return method + " " + path +
           " HTTP/1.1\r\nHost: unit\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

// One request on a connection of its own.
inline Reply ask(const std::string &path, const std::string &body = "",
                 const std::string &method = "POST") {
    RawClient client(kApiPort);
    client.send(requestText(path, body, method));
    return client.reply();
}

inline bool apiListens() {
    return sim::waitUntil([] {
        try {
            const RawClient client(kApiPort);
            return true;
        } catch (const std::runtime_error &) {
            return false;
        }
    });
}

// A daemon whose API can be asked.
class ApiDaemon : public sim::Daemon {
public:
    explicit ApiDaemon(const sim::DaemonOptions &options) : Daemon(options) {
        if (!apiListens()) {
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
