// What a file's name says about its content.
#pragma once

#include <string_view>

namespace net {

// By the text behind the last dot, case-sensitive; plain text for all that is not in the table.
const char *contentType(std::string_view path);

}  // namespace net
