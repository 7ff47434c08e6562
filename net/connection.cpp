#include "net/connection.h"

#include <cstdio>

#include "net/log.h"
#include "net/loop.h"
#include "net/print.h"

namespace net {

Connection::Connection(Loop &event_loop, mg_event_handler_t handler, void *handler_data)
    : mg_connection{}, last_request(mg_millis()), loop(event_loop) {
    mgr = event_loop.owner;
    fn = handler;
    fn_data = handler_data;
}

void Connection::emit(int event, void *event_data) {
    if (fn != nullptr) {
        fn(this, event, event_data);
    }
}

}  // namespace net

void mg_error(struct mg_connection *c, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const std::string text = net::format(fmt, &args);
    va_end(args);
    char cut[64];
    std::snprintf(cut, sizeof(cut), "%s", text.c_str());
    net::logError("connection", cut);
    c->is_closing = 1;
    static_cast<net::Connection *>(c)->emit(MG_EV_ERROR, cut);
}
