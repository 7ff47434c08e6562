#include "net/text.h"

#include <strings.h>

namespace net {

std::string_view view(struct mg_str text) {
    return {text.buf, text.len};
}

struct mg_str toMgStr(std::string_view text) {
    return {const_cast<char *>(text.data()), text.size()};
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

static bool matches(std::string_view text, std::string_view pattern) {
    if (pattern.empty()) {
        return text.empty();
    }
    const char first = pattern.front();
    const std::string_view rest = pattern.substr(1);
    if (first == '*' || first == '#') {
        std::size_t longest = text.size();
        if (first == '*') {
            longest = std::min(longest, text.find('/'));
        }
        for (std::size_t run = 0; run <= longest; ++run) {
            if (matches(text.substr(run), rest)) {
                return true;
            }
        }
        return false;
    }
    return !text.empty() && (first == '?' || first == text.front()) &&
           matches(text.substr(1), rest);
}

}  // namespace net

struct mg_str mg_str_s(const char *s) {
    return s == nullptr ? net::toMgStr({}) : net::toMgStr(s);
}

bool mg_match(struct mg_str str, struct mg_str pattern, struct mg_str *) {
    return net::matches(net::view(str), net::view(pattern));
}
