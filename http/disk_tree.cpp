#include <algorithm>
#include <array>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/shared/descriptor.h"
#include "http/file_tree.h"

namespace http {
namespace {

class DiskFile : public OpenFile {
public:
    DiskFile(Descriptor descriptor, const struct stat &status)
        : OpenFile(static_cast<std::uint64_t>(status.st_size), status.st_mtime),
          file(std::move(descriptor)) {}

    std::string_view read(std::uint64_t offset, std::size_t limit) override {
        const ssize_t count = pread(file.number(), piece.data(), std::min(limit, piece.size()),
                                    static_cast<off_t>(offset));
        return {piece.data(), count < 0 ? 0 : static_cast<std::size_t>(count)};
    }

private:
    Descriptor file;
    std::array<char, std::size_t{16} * 1024> piece;
};

PathKind kindOf(const struct stat &status) {
    return S_ISDIR(status.st_mode) ? PathKind::Directory : PathKind::File;
}

}  // namespace

PathKind DiskTree::kind(const std::string &path) const {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? kindOf(status) : PathKind::Absent;
}

std::unique_ptr<OpenFile> DiskTree::open(const std::string &path) const {
    // A FIFO would hold the thread until somebody writes to it: O_NONBLOCK.
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.isOpen() || fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return nullptr;
    }
    return std::make_unique<DiskFile>(std::move(file), status);
}

std::vector<DirectoryEntry> DiskTree::list(const std::string &path) const {
    std::vector<DirectoryEntry> entries;
    std::error_code error;
    for (std::filesystem::directory_iterator at(path, error), end; !error && at != end;
         at.increment(error)) {
        struct stat status {};
        if (stat(at->path().c_str(), &status) == 0) {
            entries.push_back({at->path().filename(), kindOf(status),
                               static_cast<std::uint64_t>(status.st_size), status.st_mtime});
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto &a, const auto &b) { return a.name < b.name; });
    return entries;
}

}  // namespace http
