// What the event loop knows of a connection, be it a listener, a client's or our own.
//
// The loop learns from Asio only that a descriptor is ready; reading and writing happen in
// work(), in the loop's own order. So no completion handler ever touches a connection, and one
// can be deleted at any time between two calls of work().
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <boost/system/error_code.hpp>

#include "net/mongoose.h"

namespace net {

class Loop;

// What has been asked of the descriptor, and whether it has been answered. Shared with Asio's
// handler, which may outlive the connection.
struct Readiness {
    bool awaited = false;
    bool ready = false;
};

constexpr std::uint64_t kNever = UINT64_MAX;

// A connection as the loop sees it: visited once in each round.
//
// Threads: the one that polls the manager.
// Owner:   the Loop's list; deleted at the end of the round in which is_closing was set.
// Errors:  what work() throws closes the connection.
class Connection : public mg_connection {
public:
    Connection(Loop &event_loop, mg_event_handler_t handler, void *handler_data);
    virtual ~Connection() = default;
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Does what is possible without waiting, then asks Asio for what it has to wait for.
    virtual void work() = 0;

    // When work() wants to be called though its descriptor is not ready: in mg_millis().
    virtual std::uint64_t wakeAt() const = 0;

    // For the limit of connections: false keeps the connection out of the choice.
    virtual bool isReplaceable() const { return false; }
    // A reply is on its way.
    virtual bool isBusy() const { return false; }
    // Bytes that it holds in memory, read or to be sent.
    virtual std::size_t held() const { return 0; }
    // Holds (almost) nothing from here on: refuses its client, or closes.
    virtual void letGo() {}

    // Gives the descriptor back before the connection itself goes.
    virtual void closeSocket() = 0;

    void emit(int event, void *event_data);

    std::uint64_t last_request;  // mg_millis() at the last request, or at the start

protected:
    Loop &loop;
};

template <class Socket>
void await(Socket &socket, typename Socket::wait_type what,
           const std::shared_ptr<Readiness> &readiness) {
    if (readiness->awaited) {
        return;
    }
    socket.async_wait(what, [readiness](const boost::system::error_code &) {
        *readiness = {.awaited = false, .ready = true};
    });
    readiness->awaited = true;
}

}  // namespace net
