#include "net/listener.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "net/log.h"
#include "net/loop.h"
#include "net/server_connection.h"
#include "net/url.h"

namespace net {
namespace {

using acceptor_t = boost::asio::ip::tcp::acceptor;

constexpr int kBacklog = 128;
// Few in one round, so that a flood of new clients leaves the present ones their turn.
constexpr int kAcceptsPerRound = 16;
constexpr std::uint64_t kPauseMs = 100;

}  // namespace

Connection *Listener::open(Loop &loop, const char *url, mg_event_handler_t handler,
                           void *handler_data) {
    auto listener = std::make_unique<Listener>(loop, handler, handler_data);
    if (const int error = listener->bindTo(url); error != 0) {
        logError(url, std::strerror(error));
        return nullptr;
    }
    Listener *const opened = listener.get();
    await(opened->acceptor, acceptor_t::wait_read, opened->clients);
    loop.add(std::move(listener));
    opened->emit(MG_EV_OPEN, nullptr);
    return opened;
}

Listener::Listener(Loop &event_loop, mg_event_handler_t handler, void *handler_data)
    : Connection(event_loop, handler, handler_data), acceptor(event_loop.io) {
    is_listening = 1;
}

// Returns an errno, 0 for success.
int Listener::bindTo(const char *url) {
    auto address = socketAddress(url);
    if (!address) {
        return EINVAL;
    }
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    socklen_t length = sizeof(*address);
    auto *const generic = reinterpret_cast<sockaddr *>(&*address);
    if (socket.number() < 0 ||
        setsockopt(socket.number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        bind(socket.number(), generic, length) != 0 || listen(socket.number(), kBacklog) != 0 ||
        getsockname(socket.number(), generic, &length) != 0) {
        return errno;
    }
    std::memcpy(loc.ip, &address->sin_addr, sizeof(address->sin_addr));
    loc.port = address->sin_port;
    acceptor.assign(boost::asio::ip::tcp::v4(), socket.number());
    socket.release();  // not before: a descriptor that is lost would hold the port for ever
    return 0;
}

void Listener::work() {
    if (paused_until != 0 ? mg_millis() < paused_until : !clients->ready) {
        return;
    }
    paused_until = 0;
    clients->ready = false;
    try {
        for (int taken = 0; taken < kAcceptsPerRound && acceptOne();) {
            ++taken;
        }
        if (paused_until == 0) {
            await(acceptor, acceptor_t::wait_read, clients);
        }
    } catch (const std::exception &error) {
        pause(error.what());
    }
}

// False when there is no more to accept in this round.
bool Listener::acceptOne() {
    const int descriptor =
        accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0) {
        takeIn(Descriptor(descriptor));
    } else if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
        pause(std::strerror(errno));
    }
    return descriptor >= 0;
}

void Listener::takeIn(Descriptor socket) {
    loop.makeRoomForClient();
    auto client = std::make_unique<ServerConnection>(loop, fn, fn_data);
    client->adopt(std::move(socket));
    Connection *const opened = client.get();
    loop.add(std::move(client));
    opened->emit(MG_EV_OPEN, nullptr);
}

void Listener::pause(const char *why) {
    logError("accept", why);
    paused_until = mg_millis() + kPauseMs;
}

std::uint64_t Listener::wakeAt() const {
    return paused_until != 0 ? paused_until : kNever;
}

void Listener::closeSocket() {
    boost::system::error_code ignored;
    acceptor.close(ignored);
}

}  // namespace net
