#include "net/message_head.h"

namespace net {
namespace {

using Result = MessageReader::Result;

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

}  // namespace

Result MessageHead::scan(std::string_view input) {
    while (position < input.size()) {
        const char c = input[position++];
        if (position >= kHeadLimit) {
            return Result::HeadTooLong;
        }
        if (c == '\n') {
            const Result result = endLine();
            if (result != Result::NeedMore) {
                return result;
            }
        } else if (after_cr || (c != '\r' && isControl(c)) || continuesLine(c)) {
            return Result::Malformed;
        } else {
            line_is_empty = line_is_empty && c == '\r';
        }
        after_cr = c == '\r';
    }
    return Result::NeedMore;
}

// A line that begins with a blank belongs to the one before it, for those who know that.
bool MessageHead::continuesLine(char c) const {
    return lines > 0 && line_is_empty && (c == ' ' || c == '\t');
}

Result MessageHead::endLine() {
    if (line_is_empty && lines == 0) {
        return Result::Malformed;
    }
    if (line_is_empty) {
        whole = true;
        return Result::Complete;
    }
    line_is_empty = true;
    return ++lines > 1 + kFieldLimit ? Result::HeadTooLong : Result::NeedMore;
}

std::string normalHead(std::string_view head, bool is_request) {
    std::string_view first_line = takeLine(head);
    const std::string_view first = takeWord(first_line);
    const std::string_view second = takeWord(first_line);
    std::string normal(first);
    normal.append(" ").append(second).append(" ");
    if (is_request) {
        normal.append(first_line == "HTTP/1.0" ? "HTTP/1.0" : "HTTP/1.1");
    } else {
        normal.append(first_line);
    }
    normal.append("\r\n");
    while (!head.empty()) {
        normal.append(takeLine(head)).append("\r\n");
    }
    return normal;
}

}  // namespace net
