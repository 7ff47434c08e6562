// A client of ours: requests in, replies out, one at a time and in order.
#pragma once

#include "net/http_connection.h"

namespace net {

// Stays open after a reply unless the request asks otherwise, for as long as the client and the
// loop's limit of connections let it.
//
// Errors: what cannot be read as HTTP is answered (400, 413, 431, 503) before the connection
//         closes. A request that is cut short by its sender never reaches a handler.
class ServerConnection : public HttpConnection {
public:
    ServerConnection(Loop &event_loop, mg_event_handler_t handler, void *handler_data);

    std::uint64_t wakeAt() const override;
    bool isReplaceable() const override { return true; }
    bool isBusy() const override { return isSending(); }
    void letGo() override;

protected:
    void broken(const char *why) override;
    void handleInput() override;
    void drained() override;

private:
    void nextRequest();
    void deliver();
    void refuse(int status);
    void dropBody();

    // After the last reply our side is closed, and what the client still sends is thrown away
    // until it closes too or this time has come: a close before that would make the system
    // reset the connection, and the client could lose the reply.
    std::uint64_t linger_until = 0;  // 0: not there yet
};

}  // namespace net
