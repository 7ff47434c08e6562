#include "net/url.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>
#include <string>

#include "net/mongoose.h"
#include "net/text.h"

namespace net {
namespace {

constexpr std::uint16_t kHttpPort = 80;

std::string_view authority(std::string_view url) {
    const std::size_t scheme = url.find("://");
    if (scheme != std::string_view::npos) {
        url.remove_prefix(scheme + 3);
    }
    url = url.substr(0, url.find('/'));
    const std::size_t user = url.rfind('@');
    return user == std::string_view::npos ? url : url.substr(user + 1);
}

// Where the host ends: brackets keep the colons of an IPv6 address out of the search.
std::size_t hostLength(std::string_view authority) {
    const std::size_t bracket = authority.rfind(']');
    const std::size_t colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
    return std::min(colon, authority.size());
}

std::optional<std::uint16_t> port(std::string_view authority) {
    const std::size_t host = hostLength(authority);
    if (host == authority.size()) {
        return kHttpPort;
    }
    const std::string_view digits = authority.substr(host + 1);
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), number);
    if (error != std::errc() || end != digits.end()) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

std::optional<sockaddr_in> socketAddress(const char *url) {
    std::string host(view(mg_url_host(url)));
    if (host.empty()) {
        host = "0.0.0.0";
    }
    if (host == "localhost") {
        host = "127.0.0.1";
    }
    const auto number = port(authority(url));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (!number || inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        return std::nullopt;
    }
    address.sin_port = htons(*number);
    return address;
}

}  // namespace net

struct mg_str mg_url_host(const char *url) {
    const std::string_view authority = net::authority(url);
    return net::toMgStr(authority.substr(0, net::hostLength(authority)));
}

const char *mg_url_uri(const char *url) {
    const char *scheme = std::strstr(url, "://");
    const char *path = std::strchr(scheme == nullptr ? url : scheme + 3, '/');
    return path == nullptr ? "/" : path;
}
