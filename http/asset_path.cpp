#include "http/asset_path.h"

#include <charconv>
#include <climits>
#include <optional>

namespace http {
namespace {

std::optional<std::string> decodeUri(std::string_view uri) {
    std::string decoded;
    while (!uri.empty()) {
        unsigned char byte = static_cast<unsigned char>(uri.front());
        std::size_t length = 1;
        if (byte == '%') {
            const std::string_view digits = uri.substr(1, 2);
            const auto [end, error] = std::from_chars(digits.begin(), digits.end(), byte, 16);
            if (error != std::errc() || end != digits.begin() + 2) {
                return std::nullopt;
            }
            length = 3;
        }
        if (byte == '\0') {
            break;
        }
        decoded += static_cast<char>(byte);
        uri.remove_prefix(length);
    }
    return decoded;
}

// `..foo` counts as well: no file here has such a name.
bool climbs(std::string_view path) {
    for (std::size_t at = path.find(".."); at != std::string_view::npos;
         at = path.find("..", at + 1)) {
        if (at == 0 || path[at - 1] == '/' || path[at - 1] == '\\') {
            return true;
        }
    }
    return false;
}

}  // namespace

PathCheck assetPath(std::string_view root, std::string_view uri, std::string &path) {
    const auto decoded = decodeUri(uri.substr(std::min<std::size_t>(uri.size(), 1)));
    if (!decoded) {
        return PathCheck::Invalid;
    }
    path = root;
    if (!path.ends_with('/')) {
        path += '/';
    }
    path += *decoded;
    if (path.size() >= PATH_MAX) {
        return PathCheck::TooLong;
    }
    if (climbs(path)) {
        return PathCheck::Invalid;
    }
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return PathCheck::Ok;
}

}  // namespace http
