// Small bridges between the interface's C strings and views and C++ texts.
#pragma once

#include <string>
#include <string_view>

#include "net/mongoose.h"

namespace net {

std::string_view view(struct mg_str text);

// The interface's views are of mutable bytes, though nobody may change what they show.
struct mg_str toMgStr(std::string_view text);

bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace net
