// Requests answered with files: one file, a redirect or a listing for each. The method matters
// only for HEAD; caching rests on the entity tag alone.
#pragma once

#include <memory>
#include <string>

#include "http/file_tree.h"
#include "http/reply.h"
#include "http/request.h"

namespace http {

// All that lies below one root.
class StaticFiles {
public:
    StaticFiles(std::unique_ptr<const FileTree> files, std::string root_path)
        : tree(std::move(files)), root(std::move(root_path)) {}

    Reply answer(const Request &request) const;

private:
    Reply answerDirectory(const Request &request, const std::string &path) const;
    Reply sendPath(const Request &request, const std::string &path) const;

    std::unique_ptr<const FileTree> tree;
    std::string root;
};

// One file of the disk that may change several times a second: its tag comes from its bytes.
Reply answerWithLog(const Request &request, const std::string &path);

}  // namespace http
