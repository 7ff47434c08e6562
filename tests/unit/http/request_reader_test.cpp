#include "http/request_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using http::Verdict;

// What the reader makes of `bytes` when they come `step` at a time.
Verdict read(http::RequestReader &reader, const std::string &bytes, size_t step) {
    std::string input;
    Verdict result = Verdict::NeedMore;
    for (size_t at = 0; at < bytes.size() && result == Verdict::NeedMore; at += step) {
        input += bytes.substr(at, step);
        result = reader.read(input);
    }
    return result;
}

std::string get(const std::string &fields) {
    return "GET / HTTP/1.1\r\n" + fields + "\r\n";
}

std::string headOf(size_t bytes) {
    return get("X: " + std::string(bytes - get("X: \r\n").size(), 'x') + "\r\n");
}

std::string manyFields(size_t count) {
    std::string fields;
    while (fields.size() < count * 4) {
        fields += "a:\r\n";
    }
    return get(fields);
}

TEST(RequestReader, GivesTheSameVerdictHoweverTheBytesCome) {
    const std::string chunked = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::string length = "Content-Length: ";
    const std::string coding = "Transfer-Encoding: ";
    using enum http::Verdict;
    const struct {
        const char *name;
        std::string bytes;
        Verdict result;
        std::string body = {};
    } rows[] = {
        {"GET", "GET /a?b=c HTTP/1.1\r\n\r\n", Complete},
        {"POST without a length", "POST /a HTTP/1.0\r\n\r\n", Complete},
        {"body", "PUT /a HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", Complete, "abc"},
        {"chunks", chunked + "2\r\nab\r\n1\r\nc\r\n0\r\n\r\n", Complete, "abc"},
        {"no chunk", chunked + "0\r\n\r\n", Complete},
        {"last chunk never ends", chunked + "0\r\n\r", NeedMore},
        {"trailer", chunked + "1\r\na\r\n0\r\nT: u\r\n\r\n", Complete, "a"},
        {"bad chunk", chunked + "zz\r\n", Malformed},
        {"huge chunk", chunked + "ffffffffffffffff\r\n", BodyTooLong},
        {"endless chunk line", chunked + "1;" + std::string(70000, 'x'), HeadTooLong},
        {"no protocol", "GET /\r\n\r\n", Complete},
        {"loose head", "PUT   /a \t FOO/9 x\nContent-Length:3\r\nX:\n\nabc", Complete, "abc"},
        {"no second word", "nonsense\r\n\r\n", Malformed},
        {"empty first line", "\r\nGET / HTTP/1.1\r\n\r\n", Malformed},
        {"lone CR", "GET / HTTP/1.1\rX: y\r\n\r\n", Malformed},
        {"CR within an end", "GET / HTTP/1.1\r\n\r\r\n", Malformed},
        {"folded line", get("X: y\r\n " + length + "3\r\n"), Malformed},
        {"blank first field", "GET / HTTP/1.1\n\tX: y\n\n", Malformed},
        {"not HTTP", "\x16\x03\x01 hello", Malformed},
        {"negative length", get(length + "-1\r\n"), Malformed},
        {"two lengths", get(length + "1\r\n" + length + "2\r\n"), Malformed},
        {"one length twice", get(length + "1\r\n" + length + "1\r\n") + "a", Malformed},
        {"listed length", get(length + "1, 1\r\n"), Malformed},
        {"signed length", get(length + "+1\r\n"), Malformed},
        {"empty length", get(length + "\r\n"), Malformed},
        {"length, chunks", get(length + "1\r\n" + coding + "chunked\r\n"), Malformed},
        {"chunks, length", get(coding + "chunked\r\n" + length + "1\r\n"), Malformed},
        {"chunks in capitals", get("TRANSFER-ENCODING: Chunked\r\n") + "0\r\n\r\n", Complete},
        {"gzip", get(coding + "gzip\r\n"), Malformed},
        {"gzip and length", get(coding + "gzip\r\n" + length + "1\r\n"), Malformed},
        {"gzip, chunked", get(coding + "gzip, chunked\r\n"), Malformed},
        {"chunked, identity", get(coding + "chunked, identity\r\n"), Malformed},
        {"xchunked", get(coding + "xchunked\r\n"), Malformed},
        {"no coding", get(coding + "\r\n"), Malformed},
        {"chunked twice", get(coding + "chunked\r\n" + coding + "chunked\r\n"), Malformed},
        {"chunks in 1.0", "POST / HTTP/1.0\r\n" + coding + "chunked\r\n\r\n", Malformed},
        {"longest head", headOf(65535), Complete},
        {"head too long", headOf(65536), HeadTooLong},
        {"long line", "GET /" + std::string(80000, 'u') + " HTTP/1.1\r\n\r\n", HeadTooLong},
        {"most fields", manyFields(100), Complete},
        {"too many fields", manyFields(101), HeadTooLong},
        {"longest body", get(length + "3145728\r\n"), NeedMore},
        {"body too long", get(length + "3145729\r\n"), BodyTooLong},
    };
    for (const auto &row : rows) {
        for (const size_t step : {size_t{1}, size_t{7}, size_t{16384}}) {
            SCOPED_TRACE(row.name + std::string(", step ") + std::to_string(step));
            http::RequestReader reader;
            EXPECT_EQ(read(reader, row.bytes, step), row.result);
            if (row.result == Verdict::Complete) {
                EXPECT_EQ(reader.request().body, row.body);
            }
        }
    }
}

TEST(RequestReader, ShowsTheFirstThirtyFieldsAndTheUriUndecoded) {
    std::string text = "get /a%20b?q=1?2 HTTP/1.1\r\n";
    for (int i = 0; i < 40; ++i) {
        text.append("H").append(std::to_string(i)).append(":  v \r\n");
    }
    std::string input = text + "\r\nrest";
    http::RequestReader reader;
    ASSERT_EQ(reader.read(input), Verdict::Complete);
    const http::Request request = reader.request();
    EXPECT_EQ(request.method, "get");
    EXPECT_EQ(request.path, "/a%20b");
    EXPECT_EQ(request.query, "q=1?2");
    EXPECT_EQ(request.field("h29"), "v");
    EXPECT_EQ(request.field("h30"), std::nullopt);
    EXPECT_EQ(input, "rest");
}

// What one reader takes for the end of a head, another must not take for its middle.
TEST(RequestReader, LeavesWhatFollowsALooseHeadAlone) {
    const std::pair<std::string, bool> rows[] = {
        {"GET /a\n\n", true},
        {"GET  /a  HTTP/1.0 \n\n", true},
        {"GET /a HTTP/1.0\n\r\n", false},
        {"GET /a   HTTP/1.1\nConnection: close\r\n\n", false}};
    const std::string next = "\nGET /b HTTP/1.1\r\n\r\n";
    for (const auto &[head, keep_alive] : rows) {
        SCOPED_TRACE(head);
        std::string input = head + next;
        http::RequestReader reader;
        ASSERT_EQ(reader.read(input), Verdict::Complete);
        EXPECT_EQ(reader.request().path, "/a");
        EXPECT_EQ(reader.keepAlive(), keep_alive);
        EXPECT_EQ(input, next);
    }
}

}  // namespace
