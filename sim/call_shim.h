// Counts the daemon's calls and makes a chosen one fail. The shim is preloaded into the
// daemon; it and its owner share one CallShim through a file that both map.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "sim/sanitized.h"

namespace sim {

// The sanitizers interpose the same functions.
inline constexpr bool kShimWorks = !kSanitized;

enum ShimCall : std::size_t {
    kShimMalloc,  // calloc and realloc too
    kShimSocket,
    kShimBind,
    kShimListen,
    kShimAccept,
    kShimConnect,
    kShimSetsockopt,
    kShimSend,
    kShimReceive,
    kShimPoll,
    kShimEpollCreate,
    kShimEpollCtl,
    kShimEventfd,
    kShimOpen,  // fopen too
    kShimRead,
    kShimWrite,
    kShimClose,
    kShimTruncate,
    kShimRename,
    kShimFallocate,
    kShimGetaddrinfo,
    kShimOwnThread,      // pthread_create by the program's own code
    kShimLibraryThread,  // and by its libraries
    kShimSrtStartup,
    kShimSrtCreateSocket,
    kShimSrtSetsockflag,
    kShimSrtConnect,
    kShimSrtBind,
    kShimSrtListen,
    kShimSrtAccept,
    kShimSrtRecvmsg,
    kShimSrtSend,
    kShimSrtBstats,
    kShimCallKinds
};

inline constexpr std::array<const char *, kShimCallKinds> kShimCallNames = {
    "malloc",          "socket",      "bind",           "listen",      "accept",
    "connect",         "setsockopt",  "send",           "recv",        "poll",
    "epoll_create",    "epoll_ctl",   "eventfd",        "open",        "read",
    "write",           "close",       "ftruncate",      "rename",      "fallocate",
    "getaddrinfo",     "own thread",  "library thread", "srt_startup", "srt_create_socket",
    "srt_setsockflag", "srt_connect", "srt_bind",       "srt_listen",  "srt_accept",
    "srt_recvmsg",     "srt_send",    "srt_bstats"};

struct CallShim {
    std::array<std::atomic<std::uint64_t>, kShimCallKinds> calls;   // of all threads
    std::array<std::atomic<std::int64_t>, kShimCallKinds> fail_in;  // 1: the next one; 0: none
    std::atomic<bool> spare_libraries;            // calls on threads that libraries have started
                                                  // do not count, libsrt's allocations do not fail
    std::atomic<bool> spared;                     // the chosen call was one of those
    std::atomic<std::uint64_t> fail_malloc_of;    // every malloc of this size fails; 0: none
    std::atomic<std::uint64_t> main_allocations;  // malloc, calloc, realloc on the main thread
    std::atomic<std::uint64_t> own_main_locks;    // mutexes that the program's own code took there
};

// Maps the file at `path`; null if that cannot be.
inline CallShim *mapCallShim(const char *path, int extra_flags = 0) {
    const int fd = ::open(path, O_RDWR | extra_flags, 0600);
    if (fd == -1 || ftruncate(fd, sizeof(CallShim)) == -1) {
        return nullptr;
    }
    void *memory = mmap(nullptr, sizeof(CallShim), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    return memory == MAP_FAILED ? nullptr : static_cast<CallShim *>(memory);
}

inline constexpr const char *kShimFile = "/dev/shm/call_shim";

}  // namespace sim
