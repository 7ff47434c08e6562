#include "net/message_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "net/text.h"

namespace {

using Result = net::MessageReader::Result;

// What the reader makes of `bytes` when they come `step` at a time.
Result read(net::MessageReader &reader, const std::string &bytes, size_t step) {
    std::string input;
    Result result = Result::NeedMore;
    for (size_t at = 0; at < bytes.size() && result == Result::NeedMore; at += step) {
        input += bytes.substr(at, step);
        result = reader.parse(input);
    }
    return result;
}

std::string headOf(size_t bytes) {
    const std::string start = "GET / HTTP/1.1\r\nX: ";
    return start + std::string(bytes - start.size() - 4, 'x') + "\r\n\r\n";
}

std::string manyFields(size_t count) {
    std::string head = "GET / HTTP/1.1\r\n";
    for (size_t i = 0; i < count; ++i) {
        head += "a:\r\n";
    }
    return head + "\r\n";
}

TEST(MessageReader, GivesTheSameVerdictHoweverTheBytesCome) {
    const std::string chunked = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    const struct {
        const char *name;
        std::string bytes;
        Result result;
        std::string body;
    } rows[] = {
        {"GET", "GET /a?b=c HTTP/1.1\r\n\r\n", Result::Complete, ""},
        {"POST without a length", "POST /a HTTP/1.0\r\n\r\n", Result::Complete, ""},
        {"body", "PUT /a HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", Result::Complete, "abc"},
        {"chunks", chunked + "2\r\nab\r\n1\r\nc\r\n0\r\n\r\n", Result::Complete, "abc"},
        {"no chunk", chunked + "0\r\n\r\n", Result::Complete, ""},
        {"last chunk never ends", chunked + "0\r\n\r", Result::NeedMore, ""},
        {"trailer", chunked + "1\r\na\r\n0\r\nT: u\r\n\r\n", Result::Complete, "a"},
        {"bad chunk", chunked + "zz\r\n", Result::Malformed, ""},
        {"huge chunk", chunked + "ffffffffffffffff\r\n", Result::BodyTooLong, ""},
        {"endless chunk line", chunked + "1;" + std::string(70000, 'x'), Result::HeadTooLong, ""},
        {"no protocol", "GET /\r\n\r\n", Result::Complete, ""},
        {"loose head", "PUT   /a \t FOO/9 x\nContent-Length:3\r\nX:\n\nabc", Result::Complete,
         "abc"},
        {"no second word", "nonsense\r\n\r\n", Result::Malformed, ""},
        {"empty first line", "\r\nGET / HTTP/1.1\r\n\r\n", Result::Malformed, ""},
        {"lone CR", "GET / HTTP/1.1\rX: y\r\n\r\n", Result::Malformed, ""},
        {"CR within an end", "GET / HTTP/1.1\r\n\r\r\n", Result::Malformed, ""},
        {"line that would become the end", "GET / HTTP/1.1\r\nX: y\n \n\n", Result::Complete, ""},
        {"not HTTP", "\x16\x03\x01 hello", Result::Malformed, ""},
        {"negative length", "GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", Result::Malformed, ""},
        {"two lengths", "GET / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n",
         Result::Malformed, ""},
        {"length and chunks",
         "GET / HTTP/1.1\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n",
         Result::Malformed, ""},
        {"longest head", headOf(net::kHeadLimit - 1), Result::Complete, ""},
        {"head too long", headOf(net::kHeadLimit), Result::HeadTooLong, ""},
        {"long line, long field",
         "GET /" + std::string(40000, 'u') + " HTTP/1.1\r\nX: " + std::string(40000, 'x') +
             "\r\n\r\n",
         Result::HeadTooLong, ""},
        {"most fields", manyFields(net::kFieldLimit), Result::Complete, ""},
        {"too many fields", manyFields(net::kFieldLimit + 1), Result::HeadTooLong, ""},
        {"longest body", "PUT / HTTP/1.1\r\nContent-Length: 3145728\r\n\r\n", Result::NeedMore, ""},
        {"body too long", "PUT / HTTP/1.1\r\nContent-Length: 3145729\r\n\r\n", Result::BodyTooLong,
         ""},
    };
    for (const auto &row : rows) {
        for (const size_t step : {size_t{1}, size_t{7}, size_t{16384}}) {
            SCOPED_TRACE(row.name + std::string(", step ") + std::to_string(step));
            const auto reader = net::makeRequestReader();
            EXPECT_EQ(read(*reader, row.bytes, step), row.result);
            if (row.result == Result::Complete) {
                EXPECT_EQ(net::view(reader->message().body), row.body);
            }
        }
    }
}

TEST(MessageReader, ShowsTheFirstThirtyFieldsAndTheUriUndecoded) {
    std::string request = "get /a%20b?q=1?2 HTTP/1.1\r\n";
    for (int i = 0; i < 40; ++i) {
        request.append("H").append(std::to_string(i)).append(":  v \r\n");
    }
    std::string input = request + "\r\nrest";
    const auto reader = net::makeRequestReader();
    ASSERT_EQ(reader->parse(input), Result::Complete);
    const mg_http_message message = reader->message();
    EXPECT_EQ(net::view(message.method), "get");
    EXPECT_EQ(net::view(message.uri), "/a%20b");
    EXPECT_EQ(net::view(message.query), "q=1?2");
    EXPECT_EQ(net::view(message.headers[29].name), "H29");
    EXPECT_EQ(net::view(message.headers[29].value), "v");
    EXPECT_EQ(input, "rest");
}

// What one reader takes for the end of a head, another must not take for its middle.
TEST(MessageReader, LeavesWhatFollowsALooseHeadAlone) {
    const struct {
        std::string head;
        bool keep_alive;
    } rows[] = {{"GET /a\n\n", true},
                {"GET  /a  HTTP/1.0 \n\n", true},
                {"GET /a HTTP/1.0\n\r\n", false},
                {"GET /a   HTTP/1.1\nConnection: close\r\n\n", false}};
    const std::string next = "\nGET /b HTTP/1.1\r\n\r\n";
    for (const auto &row : rows) {
        SCOPED_TRACE(row.head);
        std::string input = row.head + next;
        const auto reader = net::makeRequestReader();
        ASSERT_EQ(reader->parse(input), Result::Complete);
        EXPECT_EQ(net::view(reader->message().uri), "/a");
        EXPECT_EQ(reader->keepAlive(), row.keep_alive);
        EXPECT_EQ(input, next);
    }
}

}  // namespace
