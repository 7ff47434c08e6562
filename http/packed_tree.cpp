#include <map>

#include "http/file_tree.h"

namespace http {
namespace {

class PackedFile : public OpenFile {
public:
    PackedFile(const char *content, std::size_t bytes, std::time_t changed)
        : OpenFile(bytes, changed), data(content) {}

    std::string_view read(std::uint64_t offset, std::size_t limit) override {
        return std::string_view(data, static_cast<std::size_t>(size))
            .substr(static_cast<std::size_t>(offset), limit);
    }

private:
    const char *const data;  // fixed at construction; the table's own bytes
};

// What `name` is below `directory`, empty if it is not there.
std::string_view below(std::string_view name, std::string_view directory) {
    if (!name.starts_with(directory) || name.size() == directory.size() ||
        name[directory.size()] != '/') {
        return {};
    }
    return name.substr(directory.size() + 1);
}

}  // namespace

std::unique_ptr<OpenFile> PackedTree::open(const std::string &path) const {
    std::size_t size = 0;
    std::time_t mtime = 0;
    const char *data = table.content(path.c_str(), &size, &mtime);
    return data == nullptr ? nullptr : std::make_unique<PackedFile>(data, size, mtime);
}

PathKind PackedTree::kind(const std::string &path) const {
    if (table.content(path.c_str(), nullptr, nullptr) != nullptr) {
        return PathKind::File;
    }
    for (std::size_t no = 0; const char *name = table.name(no); ++no) {
        if (!below(name, path).empty()) {
            return PathKind::Directory;
        }
    }
    return PathKind::Absent;
}

std::vector<DirectoryEntry> PackedTree::list(const std::string &path) const {
    std::map<std::string, DirectoryEntry> found;
    for (std::size_t no = 0; const char *name = table.name(no); ++no) {
        const std::string_view rest = below(name, path);
        const std::string child(rest.substr(0, rest.find('/')));
        if (child.empty()) {
            continue;
        }
        const auto file = open(std::string(path).append("/").append(child));
        found[child] = {child, file ? PathKind::File : PathKind::Directory, file ? file->size : 0,
                        file ? file->mtime : 0};
    }
    std::vector<DirectoryEntry> entries;
    entries.reserve(found.size());
    for (auto &[child, entry] : found) {
        entries.push_back(std::move(entry));
    }
    return entries;
}

}  // namespace http
