// A stream address: one text in URI form that says everything about one SRT
// connection, such as srt://10.0.0.1:9000?latency=200&mode=caller.
//
// Nothing here knows SRT. The parser splits the text and keeps every query key;
// the endpoints decide what a key means.
#pragma once

#include <map>
#include <string>

struct StreamUri {
    std::string scheme;
    std::string userinfo;
    std::string host;  // a name or an address; an IPv6 literal without its brackets
    int port = 0;      // 0 means none; out of range values are kept for the endpoint to refuse
    std::string path;  // every segment with its leading "/"
    std::map<std::string, std::string> options;  // query keys to decoded values
    bool enable = false;                         // not part of the text; the store sets it
};

// Parses `text` into `record`. Requires: `record` is blank.
// Returns 0, or 1 for a syntax error or a text of more than 8 KB, which leaves `record` alone. A
// query that cannot be split is no error: the record then has no options. Query values are
// percent-decoded with "+" as a blank; `streamid` is percent-decoded once more. Of several pairs
// with one key the first stands. The fragment is dropped. Every option is printed on stdout.
[[nodiscard]] int parseStreamUri(const std::string &text, StreamUri &record);

// The text of an address for display, the log and the API: values as they are held,
// not percent-encoded, keys in byte order. A blank record gives "://".
std::string renderStreamUri(const StreamUri &record);

// Percent-decodes `text` once, leaving "+" and line breaks alone, up to the first NUL.
std::string percentDecode(std::string text);
