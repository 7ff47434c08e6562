#include "http/directory_listing.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace http {
namespace {

std::string escapeHtml(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string encodeUri(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char code[4] = {c, '\0'};
        if (byte >= 0x80 || (std::isalnum(byte) == 0 && std::strchr("._-~", c) == nullptr)) {
            std::snprintf(code, sizeof(code), "%%%02x", byte);
        }
        out += code;
    }
    return out;
}

std::string cell(const std::string &value, const std::string &shown) {
    return "<td name=" + value + ">" + shown + "</td>";
}

std::string row(const DirectoryEntry &entry) {
    const bool directory = entry.kind == PathKind::Directory;
    const std::string slash = directory ? "/" : "";
    const std::string modified = std::to_string(entry.mtime);
    const std::string size = directory ? "-1" : std::to_string(entry.size);
    return "  <tr><td><a href=\"" + encodeUri(entry.name) + slash + "\">" + escapeHtml(entry.name) +
           slash + "</a></td>" + cell(modified, modified) + cell(size, directory ? "[DIR]" : size) +
           "</tr>\n";
}

}  // namespace

std::string directoryListing(std::string_view title, const std::vector<DirectoryEntry> &entries) {
    const std::string heading = "Index of " + escapeHtml(title);
    std::string page = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + heading +
                       "</title></head>\n<body><h1>" + heading +
                       "</h1>\n<table><thead><tr><th>Name</th><th>Modified</th><th>Size</th></tr>"
                       "</thead>\n<tbody id=\"tb\">\n"
                       "  <tr><td><a href=\"..\">..</a></td><td name=-1></td>"
                       "<td name=-1>[DIR]</td></tr>\n";
    for (const DirectoryEntry &entry : entries) {
        page += row(entry);
    }
    return page + "</tbody></table></body></html>\n";
}

}  // namespace http
