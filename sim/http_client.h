// A client on the unit's network that sends what it likes, well formed or not.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "sim/wait_until.h"

namespace sim {

inline constexpr std::uint16_t kApiPort = 8000;

// A reply as it came: the head with its empty line, and the body that Content-Length tells of.
struct Reply {
    std::string head;
    std::string body;
    int status() const;
};

// A blocking socket connected to 127.0.0.1; every read gives up after five seconds.
class RawClient {
public:
    explicit RawClient(std::uint16_t port);
    ~RawClient() { close(); }
    RawClient(RawClient &&other) noexcept;

    bool send(std::string_view bytes) const;  // false: the server has closed
    Reply reply(bool has_body = true);        // empty head: the server closed instead
    std::string untilClosed();
    bool closedByServer() { return untilClosed().empty() && !timed_out; }
    void finish() const;  // FIN: nothing more will be sent
    void reset();         // RST
    void close();

private:
    bool receive();

    int fd;
    std::string received;
    bool timed_out = false;
};

// A request of the API, whole.
std::string requestText(const std::string &path, const std::string &body = "",
                        const std::string &method = "POST");

// One request to the API on a connection of its own.
Reply ask(const std::string &path, const std::string &body = "",
          const std::string &method = "POST");

// Waits until somebody listens at the API's port; false at the limit.
bool apiListens(std::chrono::milliseconds limit = kDefaultLimit);

}  // namespace sim
