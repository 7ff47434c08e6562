// The page that stands for a directory without an index.html.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "net/file_system.h"

namespace net {

// An HTML page; `title` and the names are shown as text, whatever they hold.
std::string directoryListing(std::string_view title, const std::vector<DirectoryEntry> &entries);

}  // namespace net
