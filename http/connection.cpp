#include "http/connection.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace http {
namespace {

constexpr std::size_t kReadStep = std::size_t{16} * 1024;
constexpr std::size_t kFileStep = std::size_t{64} * 1024;
// A whole head fits, so that one that is too long is seen as such.
constexpr std::size_t kInputLimit = kHeadLimit + kReadStep;
// A buffer that has been larger gives its memory back when it is empty.
constexpr std::size_t kKeptCapacity = std::size_t{4} * 1024;
constexpr std::chrono::seconds kLinger{2};

bool mayComeLater(int error) {
    return error == EAGAIN || error == EINTR;
}

iovec piece(std::string_view bytes) {
    return {const_cast<char *>(bytes.data()), bytes.size()};
}

std::string_view behind(std::string_view bytes, std::size_t count) {
    return bytes.substr(std::min(count, bytes.size()));
}

}  // namespace

Connection::Connection(Descriptor client, const Handler &request_handler)
    : socket(std::move(client)), handler(request_handler) {}

short Connection::events() const {
    const bool reads = !eof && input.size() < kInputLimit;
    return static_cast<short>((reads ? POLLIN : 0) | (isSending() ? POLLOUT : 0));
}

Clock::time_point Connection::wakeAt() const {
    const bool has_work = input_pending && !isSending() && !unanswered && !closing;
    return has_work ? Clock::time_point{} : linger_until;
}

std::size_t Connection::held() const {
    return input.size() + reader.held() +
           (sending ? sending->head.size() + sending->body.size() : 0);
}

void Connection::work(short happened) {
    if ((happened & (POLLERR | POLLNVAL)) != 0 || ((happened & POLLHUP) != 0 && eof)) {
        return close();
    }
    if ((happened & (POLLIN | POLLHUP)) != 0) {
        receive();
    }
    if (isOpen()) {
        handleInput();
    }
    if (isOpen()) {
        flush();
    }
    if (isOpen() && closing && !isSending()) {
        linger();
    }
    if (input.empty() && input.capacity() > kKeptCapacity) {
        input.shrink_to_fit();
    }
}

void Connection::receive() {
    std::array<char, kReadStep> bytes;
    const ssize_t count = recv(socket.number(), bytes.data(), bytes.size(), 0);
    if (count < 0) {
        if (!mayComeLater(errno)) {
            close();
        }
        return;
    }
    eof = count == 0;
    input.append(bytes.data(), static_cast<std::size_t>(count));
    input_pending = true;
}

void Connection::handleInput() {
    if (isLingering()) {
        input.clear();
    } else if (unanswered && eof) {
        close();
    } else if (input_pending && !isSending() && !unanswered && !closing) {
        nextRequest();
    }
}

void Connection::nextRequest() {
    input_pending = false;
    switch (reader.read(input)) {
    case Verdict::Complete:
        return deliver();
    case Verdict::NeedMore:
        closing = eof;
        return;
    case Verdict::Malformed:
        return refuse(400);
    case Verdict::HeadTooLong:
        return refuse(431);
    case Verdict::BodyTooLong:
        return refuse(413);
    }
}

void Connection::deliver() {
    const Request request = reader.request();
    const bool keep_alive = reader.keepAlive();
    last_request = Clock::now();
    sending = handler(request);
    unanswered = !sending;
    if (sending) {
        if (request.isHead()) {
            sending->body.clear();
            sending->file.reset();
        }
        closing = sending->close || !keep_alive;
    }
    reader.reset();
    input_pending = !input.empty() || eof;
}

void Connection::refuse(int status) {
    reader.reset();
    input.clear();
    sending = makeReply(status, "Connection: close\r\n", "Request refused\n");
    closing = true;
}

void Connection::letGo() {
    if (isSending() || unanswered || closing) {
        close();
    } else {
        refuse(503);
    }
}

void Connection::flush() {
    if (!isSending()) {
        return;
    }
    std::string_view of_file;
    if (sending->file) {
        of_file = sending->file->read(
            sending->file_offset,
            static_cast<std::size_t>(std::min<std::uint64_t>(sending->file_bytes, kFileStep)));
        if (of_file.empty()) {  // shorter than when it was opened: the length is a broken promise
            return close();
        }
    }
    const std::size_t body_sent = sent_bytes - std::min(sent_bytes, sending->head.size());
    std::array<iovec, 3> pieces = {piece(behind(sending->head, sent_bytes)),
                                   piece(behind(sending->body, body_sent)), piece(of_file)};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    const ssize_t count = sendmsg(socket.number(), &message, MSG_NOSIGNAL);
    if (count >= 0) {
        sent(static_cast<std::size_t>(count));
    } else if (!mayComeLater(errno)) {
        close();
    }
}

void Connection::sent(std::size_t bytes) {
    const std::size_t text_bytes = sending->head.size() + sending->body.size();
    const std::size_t of_text = std::min(bytes, text_bytes - sent_bytes);
    sent_bytes += of_text;
    sending->file_offset += bytes - of_text;
    sending->file_bytes -= bytes - of_text;
    if (sent_bytes == text_bytes && (!sending->file || sending->file_bytes == 0)) {
        Reply done = std::move(*sending);
        sending.reset();
        sent_bytes = 0;
        carryOut(done);
    }
}

void Connection::carryOut(Reply &reply) {
    try {
        if (reply.afterwards) {
            reply.afterwards();
        }
    } catch (const std::exception &error) {
        fprintf(stderr, "http: after a reply: %s\n", error.what());
    }
}

void Connection::linger() {
    const Clock::time_point now = Clock::now();
    if (eof || now >= linger_until) {
        close();
    } else if (!isLingering()) {
        shutdown(socket.number(), SHUT_WR);
        linger_until = now + kLinger;
    }
}

void Connection::close() {
    socket.reset();
    if (sending) {
        Reply lost = std::move(*sending);
        sending.reset();
        carryOut(lost);
    }
}

}  // namespace http
