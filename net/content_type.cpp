#include "net/content_type.h"

namespace net {
namespace {

struct ContentType {
    std::string_view extension;
    const char *type;
};

constexpr ContentType kTypes[] = {
    {"html", "text/html; charset=utf-8"},
    {"htm", "text/html; charset=utf-8"},
    {"shtml", "text/html; charset=utf-8"},
    {"css", "text/css; charset=utf-8"},
    {"js", "text/javascript; charset=utf-8"},
    {"csv", "text/csv"},
    {"json", "application/json"},
    {"gif", "image/gif"},
    {"png", "image/png"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"svg", "image/svg+xml"},
    {"ico", "image/x-icon"},
    {"webp", "image/webp"},
    {"woff", "font/woff"},
    {"ttf", "font/ttf"},
    {"pdf", "application/pdf"},
    {"avi", "video/x-msvideo"},
    {"mov", "video/quicktime"},
    {"mp4", "video/mp4"},
    {"mpeg", "video/mpeg"},
    {"3gp", "video/3gpp"},
    {"mp3", "audio/mpeg"},
    {"wav", "audio/wav"},
    {"doc", "application/msword"},
    {"exe", "application/octet-stream"},
    {"gz", "application/gzip"},
    {"tgz", "application/tar-gz"},
    {"zip", "application/zip"},
};

}  // namespace

const char *contentType(std::string_view path) {
    const std::size_t dot = path.rfind('.');
    if (dot != std::string_view::npos) {
        for (const auto &[extension, type] : kTypes) {
            if (extension == path.substr(dot + 1)) {
                return type;
            }
        }
    }
    return "text/plain; charset=utf-8";
}

}  // namespace net
