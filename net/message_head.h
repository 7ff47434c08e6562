// The first half of a message, up to its empty line, before the parser sees it. Clients write
// heads more loosely than Boost.Beast reads them; here is decided what is let through, and put
// into the one form that the parser takes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "net/message_reader.h"

namespace net {

// Finds the end of a head that comes piece by piece, and looks at each byte once. Lines end
// in CR LF or LF. Other control bytes than tabs belong into no head: they end it at once, so
// that a client that speaks another protocol is not waited for. So do lines that go on in the
// next one: not everybody reads those alike.
class MessageHead {
public:
    // Requires: `input` begins where it began in the last call, and has only grown.
    MessageReader::Result scan(std::string_view input);

    bool isWhole() const { return whole; }

    // Bytes that have been looked at; once it is whole, its length with the empty line.
    std::size_t length() const { return position; }

private:
    MessageReader::Result endLine();
    bool continuesLine(char c) const;

    std::size_t position = 0;
    std::size_t lines = 0;
    bool line_is_empty = true;
    bool after_cr = false;
    bool whole = false;
};

// The same head with CR LF at the end of each line, one blank between the parts of the first
// line, and in a request a protocol: HTTP/1.0 if it says so, else HTTP/1.1.
// Requires: `head` is whole.
std::string normalHead(std::string_view head, bool is_request);

}  // namespace net
