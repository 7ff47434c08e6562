#include "net/client_connection.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "net/loop.h"
#include "net/url.h"

namespace net {

Connection *ClientConnection::open(Loop &loop, const char *url, mg_event_handler_t handler,
                                   void *handler_data) {
    auto client = std::make_unique<ClientConnection>(loop, handler, handler_data);
    ClientConnection *const opened = client.get();
    loop.add(std::move(client));
    opened->emit(MG_EV_OPEN, const_cast<char *>(url));
    if (const int error = opened->connectTo(url); error != 0) {
        mg_error(opened, "connect: %s", std::strerror(error));
    }
    return opened;
}

ClientConnection::ClientConnection(Loop &event_loop, mg_event_handler_t handler, void *handler_data)
    : HttpConnection(event_loop, handler, handler_data, makeResponseReader()) {
    is_client = 1;
    is_connecting = 1;
}

// Returns an errno, 0 if the connection is made or under way.
int ClientConnection::connectTo(const char *url) {
    const auto address = socketAddress(url);
    if (!address) {
        return EINVAL;
    }
    Descriptor descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (descriptor.number() < 0) {
        return errno;
    }
    const auto *const generic = reinterpret_cast<const sockaddr *>(&*address);
    if (connect(descriptor.number(), generic, sizeof(*address)) != 0 && errno != EINPROGRESS) {
        return errno;
    }
    adopt(std::move(descriptor));
    await(socket, boost::asio::ip::tcp::socket::wait_write, writable);
    return 0;
}

void ClientConnection::work() {
    if (is_connecting) {
        finishConnecting();
    }
    if (!is_connecting && !is_closing) {
        HttpConnection::work();
    }
}

void ClientConnection::finishConnecting() {
    if (!writable->ready) {
        return;
    }
    int error = 0;
    socklen_t length = sizeof(error);
    getsockopt(socket.native_handle(), SOL_SOCKET, SO_ERROR, &error, &length);
    if (error != 0) {
        return broken(std::strerror(error));
    }
    is_connecting = 0;
    emit(MG_EV_CONNECT, nullptr);
}

void ClientConnection::broken(const char *why) {
    mg_error(this, "%s", why);
}

void ClientConnection::handleInput() {
    if (!input_pending) {
        return;
    }
    input_pending = false;
    if (eof && answered && input.empty() && !reader->started()) {
        is_closing = 1;
        return;
    }
    MessageReader::Result result = reader->parse(input);
    if (result == MessageReader::Result::NeedMore && eof) {
        result = reader->finish();
    }
    if (result == MessageReader::Result::NeedMore) {
        return;
    }
    if (result != MessageReader::Result::Complete) {
        return broken("no whole reply");
    }
    mg_http_message reply = reader->message();
    answered = true;
    emit(MG_EV_HTTP_MSG, &reply);
    reader->reset();
    input_pending = !input.empty() || eof;
}

}  // namespace net
