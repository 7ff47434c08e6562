// Counts the daemon's calls and makes a chosen one fail. The shim is preloaded into the
// daemon; it and the test share one CallShim through a file that both map.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/support/sanitized.h"

// The sanitizers interpose the same functions.
constexpr bool kShimWorks = !kSanitized;

enum ShimCall : int {
    kShimMalloc,
    kShimSocket,
    kShimBind,
    kShimOpen,
    kShimWrite,
    kShimClose,
    kShimGetaddrinfo,
    kShimOwnThread,      // pthread_create by the program's own code
    kShimLibraryThread,  // and by its libraries
    kShimFallocate,
    kShimSrtRecvmsg,
    kShimSrtAccept,
    kShimSrtStartup,
    kShimCallKinds
};

struct CallShim {
    std::array<std::atomic<std::uint64_t>, kShimCallKinds> calls;   // of all threads
    std::array<std::atomic<std::int64_t>, kShimCallKinds> fail_in;  // 1: the next one; 0: none
    std::atomic<std::uint64_t> fail_malloc_of;    // every malloc of this size fails; 0: none
    std::atomic<std::uint64_t> main_allocations;  // malloc, calloc, realloc on the main thread
    std::atomic<std::uint64_t> own_main_locks;    // mutexes that the program's own code took there
};

// Maps the file at `path`, which must be as large as a CallShim.
inline CallShim *mapCallShim(const char *path, int extra_flags = 0) {
    const int fd = ::open(path, O_RDWR | extra_flags, 0600);
    if (fd == -1 || ftruncate(fd, sizeof(CallShim)) == -1) {
        return nullptr;
    }
    void *memory = mmap(nullptr, sizeof(CallShim), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    return memory == MAP_FAILED ? nullptr : static_cast<CallShim *>(memory);
}

constexpr const char *kShimFile = "/dev/shm/call_shim";
