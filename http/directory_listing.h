// The page that stands for a directory without an index.html.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "http/file_tree.h"

namespace http {

// An HTML page; `title` and the names are shown as text, whatever they hold.
std::string directoryListing(std::string_view title, const std::vector<DirectoryEntry> &entries);

}  // namespace http
