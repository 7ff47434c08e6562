// Bytes in, requests out: the one place that knows Boost.Beast's parser and its limits. It
// works without a socket, so that a fuzzer can feed it.
//
// Clients write heads more loosely than Beast reads them: lines may end in LF, the first line's
// parts stand any number of blanks apart, its protocol may be missing or any text. HeadScanner
// decides what is let through; what it passes is put into the one form that Beast takes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "http/request.h"

namespace http {

constexpr std::size_t kHeadLimit = std::size_t{64} * 1024;        // a head is smaller than this
constexpr std::size_t kFieldLimit = 100;                          // a head has no more fields
constexpr std::size_t kBodyLimit = std::size_t{3} * 1024 * 1024;  // a body is not longer

enum class Verdict { NeedMore, Complete, Malformed, HeadTooLong, BodyTooLong };

// Finds the end of a head that comes piece by piece, and looks at each byte once. Control bytes
// other than tabs belong into no head: they end it at once, so that a client that speaks another
// protocol is not waited for. So do lines that go on in the next one: not everybody reads those
// alike.
class HeadScanner {
public:
    // Requires: `input` begins where it began in the last call, and has only grown.
    Verdict scan(std::string_view input);

    bool isWhole() const { return whole; }

    // Bytes that have been looked at; once it is whole, its length with the empty line.
    std::size_t length() const { return position; }

private:
    Verdict endLine();
    bool continuesLine(char c) const;

    std::size_t position = 0;
    std::size_t lines = 0;
    bool line_is_empty = true;
    bool after_cr = false;
    bool whole = false;
};

// Reads one request after another.
//
// Threads: none of its own; belongs to one connection.
// Errors:  by Verdict; memory that runs out throws std::bad_alloc.
class RequestReader {
public:
    RequestReader() { reset(); }

    // Takes from the front of `input` what belongs to the current request. After Malformed and
    // the like the connection is beyond repair: nothing tells where the next request begins.
    Verdict read(std::string &input);

    // Views that end with the next reset(). Requires: Complete.
    Request request() const;

    // Whether the client wants the connection after this request. Requires: Complete.
    bool keepAlive() const { return parser->keep_alive(); }

    // Bytes that have been taken of the current request.
    std::size_t held() const;

    // Forgets the request and begins the next.
    void reset();

private:
    Verdict readHead(std::string &input);
    Verdict readBody(std::string &input);

    // One for each request.
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> parser;
    HeadScanner head;
};

}  // namespace http
