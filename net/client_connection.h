// Our own request to another server, on this machine as a rule.
#pragma once

#include "net/http_connection.h"

namespace net {

// Errors: MG_EV_ERROR, once, for whatever keeps a whole reply from coming: no connection, a
//         reply that is no HTTP or too long, a server that breaks off in the middle.
class ClientConnection : public HttpConnection {
public:
    static Connection *open(Loop &loop, const char *url, mg_event_handler_t handler,
                            void *handler_data);

    ClientConnection(Loop &event_loop, mg_event_handler_t handler, void *handler_data);

    void work() override;

protected:
    void broken(const char *why) override;
    void handleInput() override;
    void drained() override { is_closing = 1; }

private:
    int connectTo(const char *url);
    void finishConnecting();

    bool answered = false;  // a reply has been delivered
};

}  // namespace net
