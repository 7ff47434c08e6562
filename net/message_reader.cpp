#include "net/message_reader.h"

#include <optional>
#include <string_view>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "net/text.h"

namespace net {
namespace {

namespace http = boost::beast::http;

struct mg_str bytes(boost::beast::string_view text) {
    return toMgStr({text.data(), text.size()});
}

MessageReader::Result verdict(const boost::beast::error_code &error) {
    if (error == http::error::header_limit) {
        return MessageReader::Result::HeadTooLong;
    }
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

template <bool isRequest>
class BeastReader : public MessageReader {
public:
    BeastReader() { BeastReader::reset(); }

    Result parse(std::string &input) override {
        boost::beast::error_code error;
        std::size_t taken = 0;
        while (!parser->is_done() && taken < input.size() && !error) {
            const bool in_head = !parser->is_header_done();
            const std::size_t used = parser->put(boost::asio::buffer(input) + taken, error);
            taken += used;
            if (in_head) {
                head_bytes += used;
            }
        }
        input.erase(0, taken);
        // The parser's own limit counts the first line apart from the fields, and it knows
        // none for the lines between chunks.
        if (head_bytes >= kHeadLimit) {
            return Result::HeadTooLong;
        }
        if (parser->is_done()) {
            return Result::Complete;
        }
        if (error && error != http::error::need_more) {
            return verdict(error);
        }
        const std::size_t head_so_far = parser->is_header_done() ? 0 : head_bytes;
        return head_so_far + input.size() >= kHeadLimit ? Result::HeadTooLong : Result::NeedMore;
    }

    Result finish() override {
        boost::beast::error_code error;
        if (started()) {  // put_eof() aborts otherwise
            parser->put_eof(error);
        }
        return started() && !error ? Result::Complete : Result::Malformed;
    }

    bool started() const override { return parser->got_some(); }

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

    std::size_t held() const override { return parser->get().body().size(); }

    void reset() override {
        parser.emplace();
        parser->header_limit(kHeadLimit);
        parser->body_limit(kBodyLimit);
        head_bytes = 0;
    }

private:
    std::optional<http::parser<isRequest, http::string_body>> parser;  // one per message
    std::size_t head_bytes = 0;
};

}  // namespace

std::unique_ptr<MessageReader> makeRequestReader() {
    return std::make_unique<BeastReader<true>>();
}

std::unique_ptr<MessageReader> makeResponseReader() {
    return std::make_unique<BeastReader<false>>();
}

}  // namespace net
