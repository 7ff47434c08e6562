// What both ends of an HTTP connection share: reading, and a queue that empties into the socket.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/ip/tcp.hpp>

#include "net/connection.h"
#include "net/descriptor.h"
#include "net/file_system.h"
#include "net/message_reader.h"

namespace net {

// In one round a connection reads once, handles one message and writes once, so that neither a
// large file nor a client that pipelines holds the others up.
//
// What limits its memory: the next request is not looked at before the last reply has gone, and
// no more is read than kInputLimit while it waits. A reply is as long as its handler makes it;
// the loop takes it back where clients together leave too much unread.
class HttpConnection : public Connection {
public:
    HttpConnection(Loop &event_loop, mg_event_handler_t handler, void *handler_data,
                   std::unique_ptr<MessageReader> message_reader);

    // Takes over a socket that does not block.
    void adopt(Descriptor descriptor);

    void queue(std::string_view bytes) { out.append(bytes); }

    // Sends `length` bytes of `opened` from `offset` on, behind what is queued; is_resp is
    // cleared when the last one has gone.
    void sendFile(std::unique_ptr<OpenFile> opened, std::uint64_t offset, std::uint64_t length);

    void work() override;
    std::uint64_t wakeAt() const override;
    std::size_t held() const override { return input.size() + reader->held() + out.size(); }
    void letGo() override { broken("no memory left for it"); }
    void closeSocket() override;

protected:
    bool isSending() const { return !out.empty() || file != nullptr; }
    // The connection is unusable: says so to whom it concerns and closes it.
    virtual void broken(const char *why) = 0;
    virtual void handleInput() = 0;
    // is_draining, and everything has been sent.
    virtual void drained() = 0;

    boost::asio::ip::tcp::socket socket;
    std::shared_ptr<Readiness> readable = std::make_shared<Readiness>();
    std::shared_ptr<Readiness> writable = std::make_shared<Readiness>();
    std::unique_ptr<MessageReader> reader;  // fixed at construction
    std::string input;                      // read, and not yet taken by `reader`
    std::string out;                        // queued, from out_sent on not yet sent
    bool input_pending = false;             // `reader` has not seen all of `input` and `eof`
    bool eof = false;                       // the peer sends no more

private:
    void receive();
    void flush();
    void sent(std::size_t bytes);

    std::size_t out_sent = 0;
    std::unique_ptr<OpenFile> file;  // follows `out`; null: none
    std::uint64_t file_offset = 0;
    std::uint64_t file_left = 0;
};

}  // namespace net
