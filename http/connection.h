// A client's connection: requests in, replies out, one at a time and in order.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "core/shared/descriptor.h"
#include "http/reply.h"
#include "http/request_reader.h"

namespace http {

using Clock = std::chrono::steady_clock;

// Stays open after a reply unless the request asks otherwise, for as long as the client and the
// server's limit of connections let it.
//
// In one round it reads once, handles one request and writes once, so that neither a large file
// nor a client that pipelines holds the others up. What limits its memory: the next request is
// not looked at before the last reply has gone, and no more is read than a head while it waits.
//
// Threads: the server's.
// Errors:  what cannot be read as HTTP is answered (400, 413, 431, 503) before the connection
//          closes. A request that is cut short by its sender never reaches the handler. What
//          work() throws makes the connection unusable.
class Connection {
public:
    // Takes over a socket that does not block. `request_handler` outlives the connection.
    Connection(Descriptor client, const Handler &request_handler);
    ~Connection() { close(); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // What it waits for, as poll() takes it: of its socket, and a time from which on it wants
    // work() called in any case.
    int descriptor() const { return socket.number(); }
    short events() const;
    Clock::time_point wakeAt() const;

    // Does what is possible without waiting; `happened` is what poll() has told.
    void work(short happened);

    // Gives the socket back; what is still to be sent is lost.
    void close();
    bool isOpen() const { return socket.isOpen(); }

    // A reply is on its way.
    bool isSending() const { return sending.has_value(); }
    Clock::time_point lastRequest() const { return last_request; }

    // Bytes that it holds in memory, read or to be sent.
    std::size_t held() const;
    // Holds (almost) nothing from here on: refuses its client, or closes.
    void letGo();

private:
    void receive();
    void handleInput();
    void nextRequest();
    void deliver();
    void refuse(int status);
    void flush();
    void sent(std::size_t bytes);
    void carryOut(Reply &reply);
    void linger();
    bool isLingering() const { return linger_until != Clock::time_point::max(); }

    Descriptor socket;
    const Handler &handler;
    RequestReader reader;
    std::string input;             // read, and not yet taken by `reader`
    bool input_pending = false;    // `reader` has not seen all of `input` and `eof`
    bool eof = false;              // the client sends no more
    bool unanswered = false;       // the handler gave no reply, so that there is no next request
    bool closing = false;          // once `sending` has gone
    std::optional<Reply> sending;  // its head and body as long as one of their bytes is left
    std::size_t sent_bytes = 0;    // of its head and body
    Clock::time_point last_request = Clock::now();  // or the start
    // After the last reply our side is closed, and what the client still sends is thrown away
    // until it closes too or this time has come: a close before that would make the system
    // reset the connection, and the client could lose the reply.
    Clock::time_point linger_until = Clock::time_point::max();  // not there yet
};

}  // namespace http
