// From the URI that a client sends to the path of a file below a root: the gate that keeps
// clients inside it.
#pragma once

#include <string>
#include <string_view>

namespace http {

enum class PathCheck { Ok, TooLong, Invalid };

// Writes root + "/" + decoded URI to `path`, without slashes at the end. TooLong if that does
// not fit PATH_MAX; Invalid if a component begins with "..", or an escape is not two hex digits.
// A decoded NUL ends the path.
PathCheck assetPath(std::string_view root, std::string_view uri, std::string &path);

}  // namespace http
