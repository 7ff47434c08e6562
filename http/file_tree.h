// Where files are found: the disk, or a table in the executable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace http {

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

class FileTree {
public:
    virtual ~FileTree() = default;
    virtual PathKind kind(const std::string &path) const = 0;
    // Null unless `path` is a file that can be read.
    virtual std::unique_ptr<OpenFile> open(const std::string &path) const = 0;
    virtual std::vector<DirectoryEntry> list(const std::string &path) const = 0;  // by name
};

// The disk. Symbolic links are followed.
class DiskTree : public FileTree {
public:
    PathKind kind(const std::string &path) const override;
    std::unique_ptr<OpenFile> open(const std::string &path) const override;
    std::vector<DirectoryEntry> list(const std::string &path) const override;
};

// The two look-ups of a table of files. Names and content must outlive whoever asks.
struct PackedTable {
    // Null: no such name. Outs may be null.
    const char *(*content)(const char *path, std::size_t *size, std::time_t *mtime);
    const char *(*name)(std::size_t number);  // counted from 0; null past the last
};

// A table. A directory exists as the beginning of longer names; one with an entry of its own
// counts as a file.
class PackedTree : public FileTree {
public:
    explicit PackedTree(const PackedTable &files) : table(files) {}
    PathKind kind(const std::string &path) const override;
    std::unique_ptr<OpenFile> open(const std::string &path) const override;
    std::vector<DirectoryEntry> list(const std::string &path) const override;

private:
    const PackedTable table;
};

}  // namespace http
