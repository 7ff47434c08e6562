// mg_http_serve_dir: one request, one file, redirect or listing. The method matters only for
// HEAD; caching rests on the entity tag alone.
#include <string>

#include "net/asset_path.h"
#include "net/byte_range.h"
#include "net/content_type.h"
#include "net/directory_listing.h"
#include "net/file_system.h"
#include "net/http_connection.h"
#include "net/text.h"

namespace net {
namespace {

std::string_view header(const mg_http_message &request, std::string_view name) {
    for (const mg_http_header &field : request.headers) {
        if (equalsIgnoringCase(view(field.name), name)) {
            return view(field.value);
        }
    }
    return {};
}

std::string entityTag(const OpenFile &file) {
    std::string tag("\"");
    return tag.append(std::to_string(file.mtime))
        .append(".")
        .append(std::to_string(file.size))
        .append("\"");
}

// Tells texts apart that the same second gave the same size.
std::string logTag(OpenFile &file) {
    std::uint64_t hash = 0xcbf29ce484222325;
    std::uint64_t size = 0;
    for (std::string_view piece; !(piece = file.read(size, SIZE_MAX)).empty();) {
        for (const char c : piece) {
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
        }
        size += piece.size();
    }
    return "\"" + std::to_string(hash) + "." + std::to_string(size) + "\"";
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

// Everything that answering one request takes.
struct Serving {
    HttpConnection &connection;
    const mg_http_message &request;
    const mg_fs &files;
    const bool is_log;
    std::string path;

    void answer(std::string_view root);

private:
    void answerDirectory();
    void redirectToSlash();
    void sendListing();
    void sendPath();
    void sendOpenFile(std::unique_ptr<OpenFile> file, const char *encoding);
    void notFound();
};

void Serving::answer(std::string_view root) {
    const PathCheck check = assetPath(root, view(request.uri), path);
    if (check == PathCheck::TooLong) {
        return mg_http_reply(&connection, 400, "", "Exceeded path size");
    }
    if (check == PathCheck::Invalid) {
        return mg_http_reply(&connection, 400, "", "Invalid path");
    }
    const PathKind kind = files.kind(path);
    if (kind == PathKind::Absent) {
        return notFound();
    }
    if (kind == PathKind::File) {
        return sendPath();
    }
    if (!view(request.uri).ends_with('/')) {
        return redirectToSlash();
    }
    answerDirectory();
}

void Serving::notFound() {
    mg_http_reply(&connection, 404, "", "Not found\n");
}

void Serving::redirectToSlash() {
    mg_printf(&connection, "HTTP/1.1 301 Moved\r\nLocation: %.*s/\r\nContent-Length: 0\r\n\r\n",
              static_cast<int>(request.uri.len), request.uri.buf);
    connection.is_resp = 0;
}

void Serving::answerDirectory() {
    const std::string directory = path;
    for (const char *index : {"index.html", "index.shtml"}) {
        path = directory + "/" + index;
        if (files.kind(path) == PathKind::File) {
            return sendPath();
        }
    }
    path = directory + "/index.html";
    if (files.kind(path + ".gz") == PathKind::File) {
        return sendPath();
    }
    path = directory;
    sendListing();
}

void Serving::sendListing() {
    std::string decoded;
    assetPath("", view(request.uri), decoded);
    if (decoded != "/") {
        decoded += '/';
    }
    const std::string page = directoryListing(decoded, files.list(path));
    mg_http_reply(&connection, 200, "Content-Type: text/html; charset=utf-8\r\n", "%s",
                  page.c_str());
}

void Serving::sendPath() {
    const bool takes_gzip =
        !is_log && header(request, "Accept-Encoding").find("gzip") != std::string::npos;
    std::unique_ptr<OpenFile> file = takes_gzip ? files.open(path + ".gz") : nullptr;
    const char *const encoding = file ? "Content-Encoding: gzip\r\n" : "";
    if (!file) {
        file = files.open(path);
    }
    if (!file) {
        return notFound();
    }
    sendOpenFile(std::move(file), encoding);
}

void Serving::sendOpenFile(std::unique_ptr<OpenFile> file, const char *encoding) {
    const std::string etag = is_log ? logTag(*file) : entityTag(*file);
    if (header(request, "If-None-Match") == etag) {
        return mg_http_reply(&connection, 304, "", "");
    }

    const Portion portion = choosePortion(header(request, "Range"), file->size);
    mg_printf(&connection,
              "HTTP/1.1 %s\r\nContent-Type: %s\r\nEtag: %s\r\nContent-Length: %llu\r\n%s%s\r\n",
              portion.status, contentType(path), etag.c_str(),
              static_cast<unsigned long long>(portion.length), portion.header.c_str(), encoding);
    if (portion.length == 0 || equalsIgnoringCase(view(request.method), "HEAD")) {
        connection.is_resp = 0;
    } else {
        connection.sendFile(std::move(file), portion.offset, portion.length);
    }
}

}  // namespace
}  // namespace net

void mg_http_serve_dir(struct mg_connection *c, struct mg_http_message *hm,
                       const struct mg_http_serve_opts *opts) {
    const mg_fs &files = opts->fs == nullptr ? mg_fs_posix : *opts->fs;
    net::Serving{*static_cast<net::HttpConnection *>(c), *hm, files, opts->is_log, {}}.answer(
        opts->root_dir);
}
