#include "http/byte_range.h"

#include <charconv>
#include <optional>

namespace http {
namespace {

void skipBlanks(std::string_view &text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
}

// Takes a number and the blanks around it off the front of `text`.
std::optional<std::uint64_t> takeNumber(std::string_view &text) {
    skipBlanks(text);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
    if (error == std::errc::invalid_argument) {
        return std::nullopt;
    }
    if (error == std::errc::result_out_of_range) {
        number = UINT64_MAX;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
    skipBlanks(text);
    return number;
}

bool takeDash(std::string_view &text) {
    const bool dash = text.starts_with('-');
    text.remove_prefix(dash ? 1 : 0);
    return dash;
}

}  // namespace

ByteRange parseByteRange(std::string_view header, std::uint64_t file_size) {
    static constexpr std::string_view kUnit = "bytes=";
    if (!header.starts_with(kUnit)) {
        return {};
    }
    header.remove_prefix(kUnit.size());
    const auto first = takeNumber(header);
    const bool dash = takeDash(header);
    auto last = dash ? takeNumber(header) : std::nullopt;
    if (!first && !last) {
        return {};
    }
    if (!first || !header.empty()) {
        last.reset();
    }
    const std::uint64_t from = first.value_or(0);
    const std::uint64_t to = last.value_or(file_size - 1);
    if (from > to || to >= file_size) {
        return {ByteRange::Kind::Unsatisfiable};
    }
    return {ByteRange::Kind::Part, from, to};
}

}  // namespace http
