#include "net/print.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "net/mongoose.h"

namespace net {
namespace {

using PrintFunction = std::size_t (*)(void (*)(char, void *), void *, va_list *);

// One %... of a format, read up to its letter.
struct Conversion {
    std::string flags;   // flags and width, as libc wants them
    int precision = -1;  // -1: none
    int longs = 0;       // how many l
    char letter = '\0';
};

// The analyzer does not follow a va_list through a pointer.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
Conversion readConversion(const char *&at, va_list *args) {
    Conversion conversion;
    while (*at != '\0' && std::strchr("#-+ 0123456789", *at) != nullptr) {
        conversion.flags += *at++;
    }
    if (*at == '.') {
        ++at;
        if (*at == '*') {
            conversion.precision = va_arg(*args, int);
            ++at;
        } else {
            conversion.precision = 0;
            while (*at >= '0' && *at <= '9') {
                conversion.precision = conversion.precision * 10 + (*at++ - '0');
            }
        }
    }
    for (; *at == 'l'; ++at) {
        ++conversion.longs;
    }
    conversion.letter = *at;
    if (*at != '\0') {
        ++at;
    }
    return conversion;
}

void appendText(std::string &out, const char *text, int precision) {
    if (text == nullptr) {
        return;
    }
    out.append(text, precision < 0 ? std::strlen(text)
                                   : strnlen(text, static_cast<std::size_t>(precision)));
}

void appendNumber(std::string &out, const Conversion &conversion, va_list *args) {
    const bool is_signed = conversion.letter == 'd';
    long long value = 0;
    if (conversion.longs > 1) {
        value = va_arg(*args, long long);
    } else if (conversion.longs == 1) {
        value = va_arg(*args, long);
    } else {
        value = is_signed ? va_arg(*args, int) : static_cast<long long>(va_arg(*args, unsigned));
    }
    const std::string pattern = "%" + conversion.flags + "ll" + conversion.letter;
    char digits[64];
    const int length = std::snprintf(digits, sizeof(digits), pattern.c_str(), value);
    out.append(digits, std::min(static_cast<std::size_t>(length), sizeof(digits) - 1));
}

void appendQuoted(std::string &out, va_list *args) {
    const auto print = va_arg(*args, PrintFunction);
    out += '"';
    print([](char c, void *text) { *static_cast<std::string *>(text) += c; }, &out, args);
    out += '"';
}

void appendConversion(std::string &out, const Conversion &conversion, va_list *args) {
    switch (conversion.letter) {
    case 'c':
        out += static_cast<char>(va_arg(*args, int));
        break;
    case 's':
        appendText(out, va_arg(*args, const char *), conversion.precision);
        break;
    case 'd':
    case 'u':
    case 'x':
        appendNumber(out, conversion, args);
        break;
    case 'm':
        appendQuoted(out, args);
        break;
    case '%':
        out += '%';
        break;
    default:  // ends the format: what follows would take wrong arguments
        break;
    }
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)
}  // namespace

std::string format(const char *fmt, va_list *args) {
    std::string out;
    while (const char *percent = std::strchr(fmt, '%')) {
        out.append(fmt, percent);
        fmt = percent + 1;
        appendConversion(out, readConversion(fmt, args), args);
    }
    return out + fmt;
}

}  // namespace net

size_t mg_print_esc(void (*out)(char, void *), void *arg, va_list *ap) {
    static constexpr std::string_view kEscaped = "\b\f\n\r\t\\\"";
    static constexpr std::string_view kLetters = "bfnrt\\\"";
    const auto limit = static_cast<std::size_t>(va_arg(*ap, int));
    const char *text = va_arg(*ap, const char *);
    std::size_t printed = 0;
    for (const char *at = text; text != nullptr && *at != '\0' && (limit == 0 || at < text + limit);
         ++at) {
        const std::size_t escaped = kEscaped.find(*at);
        if (escaped != std::string_view::npos) {
            out('\\', arg);
            ++printed;
        }
        out(escaped == std::string_view::npos ? *at : kLetters[escaped], arg);
        ++printed;
    }
    return printed;
}
