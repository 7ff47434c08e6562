// What every fuzzer has: quiet standard output, and a way to stop at a broken promise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" inline int LLVMFuzzerInitialize(int *, char ***) {
    return freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

inline std::string textOf(const std::uint8_t *bytes, std::size_t count) {
    return {reinterpret_cast<const char *>(bytes), count};
}

inline void require(bool holds, const char *promise) {
    if (!holds) {
        fprintf(stderr, "broken: %s\n", promise);
        abort();
    }
}
