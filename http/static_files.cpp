#include "http/static_files.h"

#include <optional>

#include "http/asset_path.h"
#include "http/byte_range.h"
#include "http/directory_listing.h"

namespace http {
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

// By the text behind the last dot, case-sensitive.
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

std::string tagOf(std::uint64_t version, std::uint64_t size) {
    std::string tag("\"");
    return tag.append(std::to_string(version))
        .append(".")
        .append(std::to_string(size))
        .append("\"");
}

std::string tagByTime(const OpenFile &file) {
    return tagOf(static_cast<std::uint64_t>(file.mtime), file.size);
}

// Tells texts apart that the same second gave the same size.
std::string tagByContent(OpenFile &file) {
    std::uint64_t hash = 0xcbf29ce484222325;
    std::uint64_t size = 0;
    for (std::string_view piece; !(piece = file.read(size, SIZE_MAX)).empty();) {
        for (const char c : piece) {
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
        }
        size += piece.size();
    }
    return tagOf(hash, size);
}

// What of a file goes out, and how the reply says so.
struct Portion {
    const char *status;
    std::uint64_t offset;
    std::uint64_t length;
    std::string header;  // a line, or nothing
};

Portion choosePortion(std::string_view range_header, std::uint64_t size) {
    const ByteRange range = parseByteRange(range_header, size);
    if (range.kind == ByteRange::Kind::Whole) {
        return {"200 OK", 0, size, ""};
    }
    std::string line("Content-Range: bytes ");
    if (range.kind == ByteRange::Kind::Unsatisfiable) {
        line.append("*/").append(std::to_string(size)).append("\r\n");
        return {"416 Requested Range Not Satisfiable", 0, 0, line};
    }
    line.append(std::to_string(range.first)).append("-").append(std::to_string(range.last));
    line.append("/").append(std::to_string(size)).append("\r\n");
    return {"206 Partial Content", range.first, range.last - range.first + 1, line};
}

Reply notFound() {
    return makeReply(404, "", "Not found\n");
}

Reply redirectToSlash(std::string_view path) {
    Reply reply;
    reply.head.append("HTTP/1.1 301 Moved\r\nLocation: ").append(path);
    reply.head.append("/\r\nContent-Length: 0\r\n\r\n");
    return reply;
}

// `name` tells the type; `fields` are further lines of the head.
Reply sendFile(const Request &request, std::string_view name, std::unique_ptr<OpenFile> file,
               const std::string &tag, std::string_view fields) {
    if (request.field("If-None-Match") == tag) {
        return makeReply(304, "", "");
    }
    const Portion portion = choosePortion(request.field("Range").value_or(""), file->size);
    Reply reply;
    reply.head.append("HTTP/1.1 ").append(portion.status);
    reply.head.append("\r\nContent-Type: ").append(contentType(name));
    reply.head.append("\r\nEtag: ").append(tag);
    reply.head.append("\r\nContent-Length: ").append(std::to_string(portion.length));
    reply.head.append("\r\n").append(portion.header).append(fields).append("\r\n");
    if (portion.length > 0) {
        reply.file = std::move(file);
        reply.file_offset = portion.offset;
        reply.file_bytes = portion.length;
    }
    return reply;
}

}  // namespace

Reply StaticFiles::answer(const Request &request) const {
    std::string path;
    switch (assetPath(root, request.path, path)) {
    case PathCheck::TooLong:
        return makeReply(400, "", "Exceeded path size");
    case PathCheck::Invalid:
        return makeReply(400, "", "Invalid path");
    case PathCheck::Ok:
        break;
    }
    switch (tree->kind(path)) {
    case PathKind::Absent:
        return notFound();
    case PathKind::File:
        return sendPath(request, path);
    case PathKind::Directory:
        break;
    }
    return request.path.ends_with('/') ? answerDirectory(request, path)
                                       : redirectToSlash(request.path);
}

Reply StaticFiles::answerDirectory(const Request &request, const std::string &path) const {
    for (const char *index : {"/index.html", "/index.shtml"}) {
        if (tree->kind(path + index) == PathKind::File) {
            return sendPath(request, path + index);
        }
    }
    if (tree->kind(path + "/index.html.gz") == PathKind::File) {
        return sendPath(request, path + "/index.html");
    }
    std::string title;
    assetPath("", request.path, title);
    if (title != "/") {
        title += '/';
    }
    return makeReply(200, "Content-Type: text/html; charset=utf-8\r\n",
                     directoryListing(title, tree->list(path)));
}

Reply StaticFiles::sendPath(const Request &request, const std::string &path) const {
    if (request.field("Accept-Encoding").value_or("").find("gzip") != std::string_view::npos) {
        if (auto zipped = tree->open(path + ".gz")) {
            const std::string tag = tagByTime(*zipped);
            return sendFile(request, path, std::move(zipped), tag, "Content-Encoding: gzip\r\n");
        }
    }
    auto file = tree->open(path);
    if (!file) {
        return notFound();
    }
    const std::string tag = tagByTime(*file);
    return sendFile(request, path, std::move(file), tag, "");
}

Reply answerWithLog(const Request &request, const std::string &path) {
    auto file = DiskTree().open(path);
    if (!file) {
        return notFound();
    }
    const std::string tag = tagByContent(*file);
    return sendFile(request, path, std::move(file), tag, "");
}

}  // namespace http
