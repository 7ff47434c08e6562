#include "config/stream_uri.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

#include <uriparser/Uri.h>

namespace {

// An address is parsed, printed and kept at every opening: a long one would cost seconds.
constexpr std::size_t kLongestAddress = std::size_t{8} * 1024;

// A parsed URI with its memory. The ranges in it point into the parsed text.
class ParsedUri {
public:
    explicit ParsedUri(const std::string &text)
        : valid(text.size() <= kLongestAddress &&
                uriParseSingleUriA(&uri, text.c_str(), nullptr) == URI_SUCCESS) {}
    ~ParsedUri() {
        if (valid) {
            uriFreeUriMembersA(&uri);
        }
    }
    ParsedUri(const ParsedUri &) = delete;
    ParsedUri &operator=(const ParsedUri &) = delete;

    UriUriA uri{};
    const bool valid;
};

std::string textOf(const UriTextRangeA &range) {
    return range.first == nullptr ? std::string() : std::string(range.first, range.afterLast);
}

int portOf(const UriTextRangeA &range) {
    int port = 0;
    std::istringstream(textOf(range)) >> port;
    return port;
}

std::string pathOf(const UriUriA &uri) {
    std::string path;
    for (const UriPathSegmentA *segment = uri.pathHead; segment != nullptr;
         segment = segment->next) {
        path += '/';
        path += textOf(segment->text);
    }
    return path;
}

void insertOption(const UriQueryListA &pair, StreamUri &record) {
    const bool stream_id = strcmp(pair.key, "streamid") == 0;
    if (stream_id && pair.value == nullptr) {
        return;
    }
    std::string value = pair.value == nullptr ? "" : pair.value;
    if (stream_id) {
        value = percentDecode(std::move(value));
    }
    printf("%s=%s\n", pair.key, value.c_str());
    record.options.emplace(pair.key, std::move(value));
}

void readQuery(const UriTextRangeA &query, StreamUri &record) {
    UriQueryListA *list = nullptr;
    if (uriDissectQueryMallocA(&list, nullptr, query.first, query.afterLast) != URI_SUCCESS) {
        puts("query list parse failure");
        return;
    }
    const std::unique_ptr<UriQueryListA, decltype(&uriFreeQueryListA)> pairs(list,
                                                                             uriFreeQueryListA);
    for (const UriQueryListA *pair = pairs.get(); pair != nullptr; pair = pair->next) {
        insertOption(*pair, record);
    }
}

}  // namespace

int parseStreamUri(const std::string &text, StreamUri &record) {
    const ParsedUri parsed(text);
    if (!parsed.valid) {
        printf("bad uri %.*s\n", static_cast<int>(kLongestAddress), text.c_str());
        return 1;
    }
    record.scheme = textOf(parsed.uri.scheme);
    record.userinfo = textOf(parsed.uri.userInfo);
    record.host = textOf(parsed.uri.hostText);
    record.port = portOf(parsed.uri.portText);
    record.path = pathOf(parsed.uri);
    if (parsed.uri.query.first != nullptr) {
        readQuery(parsed.uri.query, record);
    }
    return 0;
}

std::string renderStreamUri(const StreamUri &record) {
    std::string text = record.scheme;
    text += "://";
    if (!record.userinfo.empty()) {
        text += record.userinfo;
        text += '@';
    }
    const bool ipv6_literal = record.host.find(':') != std::string::npos;
    text += ipv6_literal ? "[" : "";
    text += record.host;
    text += ipv6_literal ? "]" : "";
    if (record.port != 0) {
        text += ':';
        text += std::to_string(record.port);
    }
    text += record.path;
    char separator = '?';
    for (const auto &[key, value] : record.options) {
        text += separator;
        text += key;
        if (!value.empty()) {
            text += '=';
            text += value;
        }
        separator = '&';
    }
    return text;
}

std::string percentDecode(std::string text) {
    uriUnescapeInPlaceA(text.data());
    text.resize(strlen(text.c_str()));
    return text;
}
