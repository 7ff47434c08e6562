#include "net/server_connection.h"

#include "net/loop.h"
#include "net/text.h"

namespace net {
namespace {

constexpr std::uint64_t kLingerMs = 2000;

}  // namespace

ServerConnection::ServerConnection(Loop &event_loop, mg_event_handler_t handler, void *handler_data)
    : HttpConnection(event_loop, handler, handler_data, makeRequestReader()) {}

std::uint64_t ServerConnection::wakeAt() const {
    return linger_until != 0 ? linger_until : HttpConnection::wakeAt();
}

// Clients vanish all the time: no event, no log line.
void ServerConnection::broken(const char *) {
    is_closing = 1;
}

void ServerConnection::handleInput() {
    if (linger_until != 0) {
        input.clear();
    } else if (is_resp && eof && !isSending()) {
        is_closing = 1;  // the handler gave no reply, and the client has gone
    } else if (input_pending && !is_resp && !is_draining && !isSending()) {
        nextRequest();
    }
}

void ServerConnection::nextRequest() {
    input_pending = false;
    switch (reader->parse(input)) {
    case MessageReader::Result::Complete:
        return deliver();
    case MessageReader::Result::NeedMore:
        if (eof) {
            is_draining = 1;
        }
        return;
    case MessageReader::Result::Malformed:
        return refuse(400);
    case MessageReader::Result::HeadTooLong:
        return refuse(431);
    case MessageReader::Result::BodyTooLong:
        return refuse(413);
    }
}

void ServerConnection::deliver() {
    mg_http_message request = reader->message();
    const bool keep_alive = reader->keepAlive();
    last_request = mg_millis();
    is_resp = 1;
    emit(MG_EV_HTTP_MSG, &request);
    if (equalsIgnoringCase(view(request.method), "HEAD")) {
        dropBody();
    }
    const bool replied = !is_resp || isSending();
    if (replied && !keep_alive) {
        is_draining = 1;
    }
    reader->reset();
    input_pending = !input.empty() || eof;
}

// The one reply that is queued keeps its head alone.
void ServerConnection::dropBody() {
    const std::size_t head_end = out.find("\r\n\r\n");
    if (head_end != std::string::npos) {
        out.resize(head_end + 4);
    }
}

void ServerConnection::letGo() {
    if (isSending() || is_resp || is_draining) {
        is_closing = 1;
    } else {
        refuse(503);
    }
}

void ServerConnection::refuse(int status) {
    reader->reset();
    input.clear();
    mg_http_reply(this, status, "Connection: close\r\n", "Request refused\n");
    is_draining = 1;
}

void ServerConnection::drained() {
    const std::uint64_t now = mg_millis();
    if (eof || (linger_until != 0 && now >= linger_until)) {
        is_closing = 1;
    } else if (linger_until == 0) {
        boost::system::error_code ignored;
        socket.shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
        linger_until = now + kLingerMs;
    }
}

}  // namespace net
