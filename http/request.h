// One request as a handler sees it.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace http {

constexpr std::size_t kVisibleFields = 30;

// ASCII case only.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

// Views of what the client has sent, valid until the handler returns.
struct Request {
    std::string_view method;  // any word
    std::string_view path;    // up to the '?', not decoded; need not begin with a slash
    std::string_view query;   // behind the '?'
    std::vector<std::pair<std::string_view, std::string_view>> fields;  // first kVisibleFields
    std::string_view body;

    // The first of that name, in any case, without the blanks around it; nothing if there is none.
    std::optional<std::string_view> field(std::string_view name) const;
    bool isHead() const { return equalsIgnoringCase(method, "HEAD"); }
};

}  // namespace http
