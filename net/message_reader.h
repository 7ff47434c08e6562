// Bytes in, HTTP messages out: the one place that knows Boost.Beast's parser and its limits.
// It works without a socket, so that a fuzzer can feed it.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "net/mongoose.h"

namespace net {

constexpr std::size_t kHeadLimit = std::size_t{64} * 1024;        // a head is smaller than this
constexpr std::size_t kFieldLimit = 100;                          // a head has no more fields
constexpr std::size_t kBodyLimit = std::size_t{3} * 1024 * 1024;  // a body is not longer

// Reads one message after another.
//
// Threads: none of its own; belongs to one connection.
// Errors:  by Result; memory that runs out throws std::bad_alloc.
class MessageReader {
public:
    enum class Result { NeedMore, Complete, Malformed, HeadTooLong, BodyTooLong };

    virtual ~MessageReader() = default;

    // Takes from the front of `input` what belongs to the current message. After Malformed and
    // the like the connection is beyond repair: nothing tells where the next message begins.
    virtual Result parse(std::string &input) = 0;

    // The sender has closed: is what came a whole message? Requires: parse() had its turn.
    virtual Result finish() = 0;

    // Some bytes of the current message have come.
    virtual bool started() const = 0;

    // The message, as views that end with the next reset(). Requires: Complete.
    virtual mg_http_message message() const = 0;

    // What the sender wants for the connection after this message. Requires: Complete.
    virtual bool keepAlive() const = 0;

    // Bytes that have been taken of the current message.
    virtual std::size_t held() const = 0;

    // Forgets the message and begins the next.
    virtual void reset() = 0;
};

std::unique_ptr<MessageReader> makeRequestReader();
std::unique_ptr<MessageReader> makeResponseReader();

}  // namespace net
