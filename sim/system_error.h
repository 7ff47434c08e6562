// The one place where errno becomes an exception of the simulated unit.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace sim {

[[noreturn]] inline void throwErrno(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Passes a result on and throws if it is the -1 of a failed system call.
template <typename Result>
Result check(Result result, const std::string &what) {
    if (result == -1) {
        throwErrno(what);
    }
    return result;
}

}  // namespace sim
