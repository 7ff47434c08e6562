// The formatting engine behind mg_printf, mg_http_reply and mg_error. It differs from libc's in
// one point: %m takes a function that prints, and its arguments.
#pragma once

#include <cstdarg>
#include <string>

namespace net {

// Takes the arguments from `*args`, so that a printing function can take its own.
std::string format(const char *fmt, va_list *args);

}  // namespace net
