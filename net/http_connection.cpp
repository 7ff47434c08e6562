#include "net/http_connection.h"

#include <array>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>

#include "net/loop.h"

namespace net {
namespace {

using socket_t = boost::asio::ip::tcp::socket;

constexpr std::size_t kReadStep = std::size_t{16} * 1024;
constexpr std::size_t kFileStep = std::size_t{64} * 1024;
// A whole head fits, so that one that is too long is seen as such.
constexpr std::size_t kInputLimit = kHeadLimit + kReadStep;
// A queue or buffer that has been larger gives its memory back when it is empty.
constexpr std::size_t kKeptCapacity = std::size_t{4} * 1024;

void clearAndShrink(std::string &buffer) {
    buffer.clear();
    if (buffer.capacity() > kKeptCapacity) {
        buffer.shrink_to_fit();
    }
}

}  // namespace

HttpConnection::HttpConnection(Loop &event_loop, mg_event_handler_t handler, void *handler_data,
                               std::unique_ptr<MessageReader> message_reader)
    : Connection(event_loop, handler, handler_data), socket(event_loop.io),
      reader(std::move(message_reader)) {}

void HttpConnection::adopt(Descriptor descriptor) {
    socket.assign(boost::asio::ip::tcp::v4(), descriptor.number());
    descriptor.release();
    socket.non_blocking(true);  // else Asio waits where the socket would not
    socket.set_option(boost::asio::ip::tcp::no_delay(true));
    socket.set_option(socket_t::keep_alive(true));
    await(socket, socket_t::wait_read, readable);
}

void HttpConnection::sendFile(std::unique_ptr<OpenFile> opened, std::uint64_t offset,
                              std::uint64_t length) {
    file = std::move(opened);
    file_offset = offset;
    file_left = length;
}

void HttpConnection::work() {
    if (readable->ready) {
        receive();
    }
    if (!is_closing) {
        handleInput();
    }
    if (!is_closing) {
        flush();
    }
    if (!is_closing && is_draining && !isSending()) {
        drained();
    }
    if (is_closing) {
        return;
    }
    if (input.empty()) {
        clearAndShrink(input);
    }
    if (!eof && input.size() < kInputLimit) {
        await(socket, socket_t::wait_read, readable);
    }
    if (isSending()) {
        await(socket, socket_t::wait_write, writable);
    }
}

std::uint64_t HttpConnection::wakeAt() const {
    const bool to_handle = input_pending && !isSending() && !is_resp && !is_draining;
    const bool to_send = isSending() && !writable->awaited;  // queued from outside its own round
    return to_handle || to_send ? 0 : kNever;
}

void HttpConnection::receive() {
    readable->ready = false;
    std::array<char, kReadStep> bytes;
    boost::system::error_code error;
    const std::size_t count = socket.read_some(boost::asio::buffer(bytes), error);
    if (error == boost::asio::error::would_block || error == boost::asio::error::interrupted) {
        return;
    }
    if (error == boost::asio::error::eof) {
        eof = true;
    } else if (error) {
        return broken("socket error");
    }
    input.append(bytes.data(), count);
    input_pending = true;
}

void HttpConnection::flush() {
    if (!isSending() || writable->awaited || is_connecting) {
        return;
    }
    std::string_view piece;
    if (file != nullptr) {
        piece = file->read(file_offset,
                           static_cast<std::size_t>(std::min<std::uint64_t>(file_left, kFileStep)));
        if (piece.empty()) {  // shorter than when it was opened: the length is a broken promise
            return broken("file cut while it was sent");
        }
    }
    const std::array<boost::asio::const_buffer, 2> buffers{
        boost::asio::buffer(out) + out_sent, boost::asio::buffer(piece.data(), piece.size())};
    boost::system::error_code error;
    const std::size_t count = socket.write_some(buffers, error);
    if (!error) {
        sent(count);
    } else if (error != boost::asio::error::would_block &&
               error != boost::asio::error::interrupted) {
        broken("socket error");
    }
}

void HttpConnection::sent(std::size_t bytes) {
    const std::size_t of_queue = std::min(bytes, out.size() - out_sent);
    out_sent += of_queue;
    file_offset += bytes - of_queue;
    file_left -= bytes - of_queue;
    if (out_sent == out.size()) {
        clearAndShrink(out);
        out_sent = 0;
    }
    if (file != nullptr && file_left == 0) {
        file.reset();
        is_resp = 0;
    }
}

void HttpConnection::closeSocket() {
    boost::system::error_code ignored;
    socket.close(ignored);
}

}  // namespace net

bool mg_send(struct mg_connection *c, const void *bytes, size_t length) {
    static_cast<net::HttpConnection *>(c)->queue({static_cast<const char *>(bytes), length});
    return length > 0;
}
