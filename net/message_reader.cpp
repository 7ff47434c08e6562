#include "net/message_reader.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "net/message_head.h"
#include "net/text.h"

namespace net {
namespace {

namespace http = boost::beast::http;

struct mg_str bytes(boost::beast::string_view text) {
    return toMgStr({text.data(), text.size()});
}

MessageReader::Result verdict(const boost::beast::error_code &error) {
    if (error == http::error::body_limit) {
        return MessageReader::Result::BodyTooLong;
    }
    return MessageReader::Result::Malformed;
}

void describeRequest(const http::request<http::string_body> &request, mg_http_message &out) {
    const boost::beast::string_view target = request.target();
    const std::size_t question = std::min(target.find('?'), target.size());
    out.method = bytes(request.method_string());
    out.uri = bytes(target.substr(0, question));
    if (question < target.size()) {
        out.query = bytes(target.substr(question + 1));
    }
    out.proto = mg_str(request.version() == 10 ? "HTTP/1.0" : "HTTP/1.1");
}

bool isNumber(boost::beast::string_view text) {
    return text.find_first_not_of("0123456789") == boost::beast::string_view::npos;
}

// False where two readers could see different ends of the message.
template <class Message>
bool hasOneLength(const Message &message) {
    const auto codings = message.equal_range(http::field::transfer_encoding);
    const auto lengths = message.equal_range(http::field::content_length);
    if (codings.first == codings.second) {
        return lengths.first == lengths.second ||
               (std::next(lengths.first) == lengths.second && isNumber(lengths.first->value()));
    }
    const boost::beast::string_view coding = codings.first->value();
    return std::next(codings.first) == codings.second && lengths.first == lengths.second &&
           message.version() == 11 && equalsIgnoringCase({coding.data(), coding.size()}, "chunked");
}

template <bool isRequest>
class BeastReader : public MessageReader {
public:
    BeastReader() { BeastReader::reset(); }

    Result parse(std::string &input) override {
        if (!head.isWhole()) {
            const Result result = readHead(input);
            if (result != Result::Complete) {
                return result;
            }
        }
        return readBody(input);
    }

    Result finish() override {
        boost::beast::error_code error;
        if (head.isWhole()) {  // put_eof() aborts otherwise
            parser->put_eof(error);
        }
        return head.isWhole() && !error ? Result::Complete : Result::Malformed;
    }

    bool started() const override { return head.length() > 0; }

    mg_http_message message() const override {
        const auto &read = parser->get();
        mg_http_message out{};
        if constexpr (isRequest) {
            describeRequest(read, out);
        }
        std::size_t count = 0;
        for (const auto &field : read) {
            if (count == MG_MAX_HTTP_HEADERS) {
                break;
            }
            out.headers[count++] = {bytes(field.name_string()), bytes(field.value())};
        }
        out.body = toMgStr(read.body());
        return out;
    }

    bool keepAlive() const override { return parser->keep_alive(); }

    std::size_t held() const override {
        return (head.isWhole() ? head.length() : 0) + parser->get().body().size();
    }

    void reset() override {
        parser.emplace();
        parser->header_limit(std::numeric_limits<std::uint32_t>::max());  // `head` has its own
        parser->body_limit(kBodyLimit);
        head = {};
    }

private:
    Result readHead(std::string &input) {
        const Result result = head.scan(input);
        if (result == Result::Complete) {
            const std::string normal = normalHead({input.data(), head.length()}, isRequest);
            input.erase(0, head.length());
            boost::beast::error_code error;
            parser->put(boost::asio::buffer(normal), error);
            if (!error && isRequest && !hasOneLength(parser->get())) {
                return Result::Malformed;
            }
            return error ? verdict(error) : Result::Complete;
        }
        return result;
    }

    Result readBody(std::string &input) {
        boost::beast::error_code error;
        std::size_t taken = 0;
        while (!parser->is_done() && taken < input.size() && !error) {
            taken += parser->put(boost::asio::buffer(input) + taken, error);
        }
        input.erase(0, taken);
        if (parser->is_done()) {
            return Result::Complete;
        }
        if (error && error != http::error::need_more) {
            return verdict(error);
        }
        // The parser knows no limit for the lines between chunks.
        return input.size() >= kHeadLimit ? Result::HeadTooLong : Result::NeedMore;
    }

    std::optional<http::parser<isRequest, http::string_body>> parser;  // one per message
    MessageHead head;
};

}  // namespace

std::unique_ptr<MessageReader> makeRequestReader() {
    return std::make_unique<BeastReader<true>>();
}

std::unique_ptr<MessageReader> makeResponseReader() {
    return std::make_unique<BeastReader<false>>();
}

}  // namespace net
