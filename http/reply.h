// What a handler gives back for a request.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "http/file_tree.h"

namespace http {

// The head, then the body, then a part of a file, as they stand. A client that asked with HEAD
// gets the head alone.
struct Reply {
    std::string head = {};  // status line to empty line
    std::string body = {};
    std::unique_ptr<OpenFile> file = {};  // null: none
    std::uint64_t file_offset = 0;
    std::uint64_t file_bytes = 0;
    bool close = false;  // the connection, once the client has all of it
    // Carried out, by the server's thread, once the last byte has been handed to the system, or
    // the connection is lost.
    std::function<void()> afterwards = {};
};

struct Request;

// The reply; or nothing, and the request is never answered.
using Handler = std::function<std::optional<Reply>(const Request &)>;

// A reply of a status and a body. `fields` are whole lines with their ends.
Reply makeReply(int status, std::string_view fields, std::string body);

}  // namespace http
