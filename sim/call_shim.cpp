// The preloaded side: takes the place of the C library's and libsrt's functions, counts,
// and passes on. See call_shim.h.
#include "sim/call_shim.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <srt/srt.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own doors
extern "C" {
void *__libc_malloc(std::size_t);
void *__libc_calloc(std::size_t, std::size_t);
void *__libc_realloc(void *, std::size_t);
void __libc_free(void *);
int __libc_start_main(int (*)(int, char **, char **), int, char **, void (*)(), void (*)(),
                      void (*)(), void *);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using namespace sim;

CallShim *shim = nullptr;
std::uintptr_t program_begin = 0;
std::uintptr_t program_end = 0;
__attribute__((tls_model("initial-exec"))) thread_local bool on_main_thread = false;

int (*real_main)(int, char **, char **) = nullptr;
std::atomic<bool> main_runs{false};

// On each thread that the program's own code started, and on the main thread.
__attribute__((tls_model("initial-exec"))) thread_local bool on_own_thread = false;

int noteProgram(dl_phdr_info *info, std::size_t, void *) {
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &part = info->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            program_begin = info->dlpi_addr + part.p_vaddr;
            program_end = program_begin + part.p_memsz;
        }
    }
    return 1;  // the program itself is the first object; no other one matters
}

__attribute__((constructor)) void attach() {
    on_main_thread = true;
    on_own_thread = true;
    dl_iterate_phdr(noteProgram, nullptr);
    shim = mapCallShim(kShimFile);
}

bool isOwnCode(const void *return_address) {
    const auto caller = reinterpret_cast<std::uintptr_t>(return_address);
    return caller >= program_begin && caller < program_end;
}

// libsrt does not survive an allocation of its own that fails, and nobody can mend that from
// outside: those are left alone. The callers are written to stderr, for whoever looks into a
// life that went wrong; addr2line makes lines of them.
bool isAskedByLibsrt() {
    main_runs = false;  // calls for this do not count
    std::array<void *, 24> frames{};
    const int depth = backtrace(frames.data(), frames.size());
    bool by_libsrt = false;
    for (int i = 0; i < depth; ++i) {
        Dl_info info{};
        by_libsrt = by_libsrt || (dladdr(frames.at(static_cast<std::size_t>(i)), &info) != 0 &&
                                  strstr(info.dli_fname, "libsrt") != nullptr);
    }
    if (!by_libsrt) {
        backtrace_symbols_fd(frames.data(), depth, STDERR_FILENO);
    }
    main_runs = true;
    return by_libsrt;
}

// Counts a call; true if it is the one that is to fail.
bool fails(ShimCall kind) {
    if (shim == nullptr || !main_runs || (shim->spare_libraries && !on_own_thread)) {
        return false;
    }
    ++shim->calls[kind];
    const bool chosen = shim->fail_in[kind] > 0 && shim->fail_in[kind].fetch_sub(1) == 1;
    if (!chosen || !shim->spare_libraries) {
        return chosen;
    }
    const bool spared = isAskedByLibsrt() && kind == kShimMalloc;
    shim->spared = spared;
    return !spared;
}

void noteAllocation() {
    if (shim != nullptr && on_main_thread) {
        ++shim->main_allocations;
    }
}

template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

template <typename Result>
Result failWith(int error, Result result) {
    errno = error;
    return result;
}

int runMain(int argc, char **argv, char **env) {
    main_runs = true;
    const int status = real_main(argc, argv, env);
    main_runs = false;
    return status;
}

struct ThreadStart {
    void *(*entry)(void *);
    void *argument;
};

void *runOwnThread(void *start) {
    on_own_thread = true;
    const ThreadStart own = *static_cast<ThreadStart *>(start);
    __libc_free(start);
    return own.entry(own.argument);
}

}  // namespace

// The real function is looked up once.
#define PASS_ON(name, ...)                                                                         \
    static const auto real = next<decltype(name)>(#name);                                          \
    return real(__VA_ARGS__)

// One stand-in that fails with an errno.
#define STAND_IN(kind, result, name, error, failure, parameters, ...)                              \
    result name parameters {                                                                       \
        if (fails(kind)) {                                                                         \
            return failWith<result>(error, failure);                                               \
        }                                                                                          \
        PASS_ON(name, __VA_ARGS__);                                                                \
    }

// One of libsrt's. A failure leaves its reason with libsrt: here, that there is no such socket.
#define SRT_STAND_IN(kind, result, name, parameters, sock, ...)                                    \
    result name parameters {                                                                       \
        PASS_ON(name, fails(kind) ? SRT_INVALID_SOCK : (sock), __VA_ARGS__);                       \
    }

extern "C" {

// What libraries do before main() and behind it is not the daemon's.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
int __libc_start_main(int (*program)(int, char **, char **), int argc, char **argv, void (*init)(),
                      void (*fini)(), void (*rtld_fini)(), void *stack_end) {
    static const auto real = next<decltype(__libc_start_main)>("__libc_start_main");
    real_main = program;
    return real(runMain, argc, argv, init, fini, rtld_fini, stack_end);
}

void *malloc(std::size_t size) {
    noteAllocation();
    const bool chosen = shim != nullptr && size != 0 && shim->fail_malloc_of == size;
    return fails(kShimMalloc) || chosen ? failWith<void *>(ENOMEM, nullptr) : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) {
    noteAllocation();
    return fails(kShimMalloc) ? failWith<void *>(ENOMEM, nullptr) : __libc_calloc(count, size);
}

void *realloc(void *old, std::size_t size) {
    noteAllocation();
    return fails(kShimMalloc) ? failWith<void *>(ENOMEM, nullptr) : __libc_realloc(old, size);
}

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    if (shim != nullptr && on_main_thread && isOwnCode(__builtin_return_address(0))) {
        ++shim->own_main_locks;
    }
    PASS_ON(pthread_mutex_lock, mutex);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                   void *argument) noexcept {
    static const auto real = next<decltype(pthread_create)>("pthread_create");
    const bool own = isOwnCode(__builtin_return_address(0));
    if (fails(own ? kShimOwnThread : kShimLibraryThread)) {
        return EAGAIN;
    }
    if (!own) {
        return real(thread, attributes, entry, argument);
    }
    auto *start = static_cast<ThreadStart *>(__libc_malloc(sizeof(ThreadStart)));
    *start = {entry, argument};
    return real(thread, attributes, runOwnThread, start);
}

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (fails(kShimOpen)) {
        return failWith(EMFILE, -1);
    }
    PASS_ON(open, path, flags, mode);
}

int close(int fd) {
    const bool chosen = fails(kShimClose);
    static const auto real = next<decltype(close)>("close");
    const int result = real(fd);  // a close that fails has closed all the same
    return chosen ? failWith(EIO, -1) : result;
}

STAND_IN(kShimOpen, FILE *, fopen, EMFILE, nullptr, (const char *path, const char *mode), path,
         mode)
STAND_IN(kShimRead, ssize_t, read, EIO, -1, (int fd, void *data, std::size_t size), fd, data, size)
STAND_IN(kShimWrite, ssize_t, write, ENOSPC, -1, (int fd, const void *data, std::size_t size), fd,
         data, size)
STAND_IN(kShimTruncate, int, ftruncate, EIO, -1, (int fd, off_t size) noexcept, fd, size)
STAND_IN(kShimRename, int, rename, EACCES, -1, (const char *from, const char *to) noexcept, from,
         to)
STAND_IN(kShimFallocate, int, posix_fallocate, ENOSPC, ENOSPC, (int fd, off_t offset, off_t size),
         fd, offset, size)
STAND_IN(kShimSocket, int, socket, EMFILE, -1, (int domain, int type, int protocol) noexcept,
         domain, type, protocol)
STAND_IN(kShimBind, int, bind, EADDRINUSE, -1,
         (int fd, const sockaddr *address, socklen_t size) noexcept, fd, address, size)
STAND_IN(kShimListen, int, listen, EADDRINUSE, -1, (int fd, int backlog) noexcept, fd, backlog)
STAND_IN(kShimAccept, int, accept, EMFILE, -1, (int fd, sockaddr *address, socklen_t *size), fd,
         address, size)
STAND_IN(kShimAccept, int, accept4, EMFILE, -1,
         (int fd, sockaddr *address, socklen_t *size, int flags), fd, address, size, flags)
STAND_IN(kShimConnect, int, connect, ECONNREFUSED, -1,
         (int fd, const sockaddr *address, socklen_t size), fd, address, size)
STAND_IN(kShimSetsockopt, int, setsockopt, EINVAL, -1,
         (int fd, int level, int name, const void *value, socklen_t size) noexcept, fd, level, name,
         value, size)
STAND_IN(kShimSend, ssize_t, sendto, ENOBUFS, -1,
         (int fd, const void *data, std::size_t size, int flags, const sockaddr *address,
          socklen_t address_size),
         fd, data, size, flags, address, address_size)
STAND_IN(kShimSend, ssize_t, sendmsg, ENOBUFS, -1, (int fd, const msghdr *message, int flags), fd,
         message, flags)
STAND_IN(kShimSend, ssize_t, send, ENOBUFS, -1,
         (int fd, const void *data, std::size_t size, int flags), fd, data, size, flags)
STAND_IN(kShimReceive, ssize_t, recvmsg, ENOMEM, -1, (int fd, msghdr *message, int flags), fd,
         message, flags)
STAND_IN(kShimReceive, ssize_t, recv, ENOMEM, -1, (int fd, void *data, std::size_t size, int flags),
         fd, data, size, flags)
STAND_IN(kShimPoll, int, poll, ENOMEM, -1, (pollfd * fds, nfds_t count, int limit_ms), fds, count,
         limit_ms)
STAND_IN(kShimEpollCreate, int, epoll_create1, EMFILE, -1, (int flags) noexcept, flags)
STAND_IN(kShimEpollCreate, int, epoll_create, EMFILE, -1, (int size) noexcept, size)
STAND_IN(kShimEpollCtl, int, epoll_ctl, ENOMEM, -1,
         (int epoll, int operation, int fd, epoll_event *event) noexcept, epoll, operation, fd,
         event)
STAND_IN(kShimEventfd, int, eventfd, EMFILE, -1, (unsigned count, int flags) noexcept, count, flags)
STAND_IN(kShimGetaddrinfo, int, getaddrinfo, 0, EAI_AGAIN,
         (const char *node, const char *service, const addrinfo *hints, addrinfo **list), node,
         service, hints, list)

STAND_IN(kShimSrtStartup, int, srt_startup, 0, SRT_ERROR, ())
STAND_IN(kShimSrtCreateSocket, SRTSOCKET, srt_create_socket, 0, SRT_INVALID_SOCK, ())
SRT_STAND_IN(kShimSrtSetsockflag, int, srt_setsockflag,
             (SRTSOCKET sock, SRT_SOCKOPT option, const void *value, int size), sock, option, value,
             size)
SRT_STAND_IN(kShimSrtConnect, int, srt_connect, (SRTSOCKET sock, const sockaddr *address, int size),
             sock, address, size)
SRT_STAND_IN(kShimSrtBind, int, srt_bind, (SRTSOCKET sock, const sockaddr *address, int size), sock,
             address, size)
SRT_STAND_IN(kShimSrtListen, int, srt_listen, (SRTSOCKET sock, int backlog), sock, backlog)
SRT_STAND_IN(kShimSrtAccept, SRTSOCKET, srt_accept, (SRTSOCKET sock, sockaddr *address, int *size),
             sock, address, size)
SRT_STAND_IN(kShimSrtRecvmsg, int, srt_recvmsg, (SRTSOCKET sock, char *buffer, int size), sock,
             buffer, size)
SRT_STAND_IN(kShimSrtSend, int, srt_send, (SRTSOCKET sock, const char *buffer, int size), sock,
             buffer, size)
SRT_STAND_IN(kShimSrtBstats, int, srt_bstats, (SRTSOCKET sock, SRT_TRACEBSTATS *stats, int clear),
             sock, stats, clear)

}  // extern "C"
