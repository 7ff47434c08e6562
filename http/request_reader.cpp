#include "http/request_reader.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include <boost/asio/buffer.hpp>

namespace http {
namespace {

namespace beast = boost::beast::http;

bool isControl(char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
}

// Cuts the first line off, without its end.
std::string_view takeLine(std::string_view &text) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

// Cuts the first word off, and the blanks behind it.
std::string_view takeWord(std::string_view &line) {
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
    return word;
}

// CR LF at the end of each line, one blank between the parts of the first, and a protocol:
// HTTP/1.0 if it says so, else HTTP/1.1.
std::string normalHead(std::string_view head) {
    std::string_view first_line = takeLine(head);
    std::string normal(takeWord(first_line));
    normal.append(" ").append(takeWord(first_line));
    normal.append(first_line == "HTTP/1.0" ? " HTTP/1.0\r\n" : " HTTP/1.1\r\n");
    while (!head.empty()) {
        normal.append(takeLine(head)).append("\r\n");
    }
    return normal;
}

std::string_view viewOf(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

bool isNumber(std::string_view text) {
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

// False where two readers could see different ends of the message.
bool hasOneLength(const beast::request<beast::string_body> &request) {
    const auto [coding, codings_end] = request.equal_range(beast::field::transfer_encoding);
    const auto [length, lengths_end] = request.equal_range(beast::field::content_length);
    if (coding == codings_end) {
        return length == lengths_end ||
               (std::next(length) == lengths_end && isNumber(viewOf(length->value())));
    }
    return std::next(coding) == codings_end && length == lengths_end && request.version() == 11 &&
           equalsIgnoringCase(viewOf(coding->value()), "chunked");
}

Verdict verdict(const boost::beast::error_code &error) {
    return error == beast::error::body_limit ? Verdict::BodyTooLong : Verdict::Malformed;
}

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

std::optional<std::string_view> Request::field(std::string_view name) const {
    for (const auto &[key, value] : fields) {
        if (equalsIgnoringCase(key, name)) {
            return value;
        }
    }
    return std::nullopt;
}

Verdict HeadScanner::scan(std::string_view input) {
    while (position < input.size()) {
        const char c = input[position++];
        if (position >= kHeadLimit) {
            return Verdict::HeadTooLong;
        }
        if (c == '\n') {
            const Verdict result = endLine();
            if (result != Verdict::NeedMore) {
                return result;
            }
        } else if (after_cr || (c != '\r' && isControl(c)) || continuesLine(c)) {
            return Verdict::Malformed;
        } else {
            line_is_empty = line_is_empty && c == '\r';
        }
        after_cr = c == '\r';
    }
    return Verdict::NeedMore;
}

// A line that begins with a blank belongs to the one before it, for those who know that.
bool HeadScanner::continuesLine(char c) const {
    return lines > 0 && line_is_empty && (c == ' ' || c == '\t');
}

Verdict HeadScanner::endLine() {
    if (line_is_empty && lines == 0) {
        return Verdict::Malformed;
    }
    if (line_is_empty) {
        whole = true;
        return Verdict::Complete;
    }
    line_is_empty = true;
    return ++lines > 1 + kFieldLimit ? Verdict::HeadTooLong : Verdict::NeedMore;
}

Verdict RequestReader::read(std::string &input) {
    if (!head.isWhole()) {
        const Verdict result = readHead(input);
        if (result != Verdict::Complete) {
            return result;
        }
    }
    return readBody(input);
}

Verdict RequestReader::readHead(std::string &input) {
    const Verdict result = head.scan(input);
    if (result != Verdict::Complete) {
        return result;
    }
    const std::string normal = normalHead({input.data(), head.length()});
    input.erase(0, head.length());
    boost::beast::error_code error;
    parser->put(boost::asio::buffer(normal), error);
    if (error) {
        return verdict(error);
    }
    return hasOneLength(parser->get()) ? Verdict::Complete : Verdict::Malformed;
}

Verdict RequestReader::readBody(std::string &input) {
    boost::beast::error_code error;
    std::size_t taken = 0;
    while (!parser->is_done() && taken < input.size() && !error) {
        taken += parser->put(boost::asio::buffer(input) + taken, error);
    }
    input.erase(0, taken);
    if (parser->is_done()) {
        return Verdict::Complete;
    }
    if (error && error != beast::error::need_more) {
        return verdict(error);
    }
    // The parser knows no limit for the lines between chunks.
    return input.size() >= kHeadLimit ? Verdict::HeadTooLong : Verdict::NeedMore;
}

Request RequestReader::request() const {
    const auto &message = parser->get();
    const std::string_view target = viewOf(message.target());
    const std::size_t question = std::min(target.find('?'), target.size());
    Request out;
    out.method = viewOf(message.method_string());
    out.path = target.substr(0, question);
    out.query = target.substr(std::min(question + 1, target.size()));
    for (const auto &field : message) {
        if (out.fields.size() == kVisibleFields) {
            break;
        }
        out.fields.emplace_back(viewOf(field.name_string()), viewOf(field.value()));
    }
    out.body = message.body();
    return out;
}

std::size_t RequestReader::held() const {
    return (head.isWhole() ? head.length() : 0) + parser->get().body().size();
}

void RequestReader::reset() {
    parser.emplace();
    parser->header_limit(std::numeric_limits<std::uint32_t>::max());  // `head` has its own
    parser->body_limit(kBodyLimit);
    head = {};
}

}  // namespace http
