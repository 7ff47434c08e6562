#include "http/reply.h"

#include <boost/beast/http/status.hpp>

namespace http {
namespace {

constexpr std::size_t kLengthColumns = 11;

std::string phrase(int status) {
    namespace beast = boost::beast::http;
    const auto known = beast::int_to_status(static_cast<unsigned>(status));
    return known == beast::status::unknown ? "" : std::string(beast::obsolete_reason(known));
}

}  // namespace

Reply makeReply(int status, std::string_view fields, std::string body) {
    std::string length = std::to_string(body.size());
    length.resize(std::max(length.size(), kLengthColumns), ' ');
    Reply reply;
    reply.head.append("HTTP/1.1 ").append(std::to_string(status)).append(" ");
    reply.head.append(phrase(status)).append("\r\n").append(fields);
    reply.head.append("Content-Length: ").append(length).append("\r\n\r\n");
    reply.body = std::move(body);
    return reply;
}

}  // namespace http
