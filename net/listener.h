// The listening side: takes clients in, within the limit of connections.
#pragma once

#include <boost/asio/ip/tcp.hpp>

#include "net/connection.h"
#include "net/descriptor.h"

namespace net {

// Never closes by itself: where a client cannot be taken in (no descriptor, no memory), it
// pauses for a moment, lest a client that waits in the backlog keep the loop spinning.
class Listener : public Connection {
public:
    // Null, with the reason logged, if `url` cannot be listened on.
    static Connection *open(Loop &loop, const char *url, mg_event_handler_t handler,
                            void *handler_data);

    Listener(Loop &event_loop, mg_event_handler_t handler, void *handler_data);

    void work() override;
    std::uint64_t wakeAt() const override;
    void closeSocket() override;

private:
    int bindTo(const char *url);
    bool acceptOne();
    void takeIn(Descriptor socket);
    void pause(const char *why);

    boost::asio::ip::tcp::acceptor acceptor;
    std::shared_ptr<Readiness> clients = std::make_shared<Readiness>();
    std::uint64_t paused_until = 0;  // 0: not paused
};

}  // namespace net
