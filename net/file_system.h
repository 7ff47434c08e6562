// Where mg_http_serve_dir finds files: the disk, or the table in the executable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/mongoose.h"

namespace net {

// A file open for sending. Its size and time are those of the very bytes that are sent, also if
// the name means another file by now.
class OpenFile {
public:
    OpenFile(std::uint64_t bytes, std::time_t changed) : size(bytes), mtime(changed) {}
    virtual ~OpenFile() = default;
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    // Some bytes from `offset` on, at most `limit`; none if the file has become shorter. Valid
    // until the next call.
    virtual std::string_view read(std::uint64_t offset, std::size_t limit) = 0;

    const std::uint64_t size;
    const std::time_t mtime;
};

enum class PathKind { Absent, File, Directory };

struct DirectoryEntry {
    std::string name;
    PathKind kind;
    std::uint64_t size;
    std::time_t mtime;
};

}  // namespace net

struct mg_fs {
    net::PathKind (*kind)(const std::string &path);
    // Null unless `path` is a file that can be read.
    std::unique_ptr<net::OpenFile> (*open)(const std::string &path);
    std::vector<net::DirectoryEntry> (*list)(const std::string &path);  // by name
};
