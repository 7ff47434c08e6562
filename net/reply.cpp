// mg_http_reply and mg_printf: formatted text into a connection's queue.
#include <string>

#include <boost/beast/http/status.hpp>

#include "net/http_connection.h"
#include "net/print.h"

namespace {

std::string phrase(int status) {
    namespace http = boost::beast::http;
    const auto known = http::int_to_status(static_cast<unsigned>(status));
    return known == http::status::unknown ? "" : std::string(http::obsolete_reason(known));
}

}  // namespace

size_t mg_printf(struct mg_connection *c, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const std::string text = net::format(fmt, &args);
    va_end(args);
    static_cast<net::HttpConnection *>(c)->queue(text);
    return text.size();
}

void mg_http_reply(struct mg_connection *c, int status, const char *headers, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const std::string body = net::format(fmt, &args);
    va_end(args);
    mg_printf(c, "HTTP/1.1 %d %s\r\n%sContent-Length: %-10lu \r\n\r\n", status,
              phrase(status).c_str(), headers, static_cast<unsigned long>(body.size()));
    mg_send(c, body.data(), body.size());
    c->is_resp = 0;
}
