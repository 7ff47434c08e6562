// The preloaded side: takes the place of the C library's and libsrt's functions, counts,
// and passes on. See call_shim.h.
#include "tests/support/call_shim.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>

#include <dlfcn.h>
#include <link.h>
#include <netdb.h>
#include <pthread.h>
#include <srt/srt.h>
#include <sys/socket.h>

extern "C" {
void *__libc_malloc(std::size_t);
void *__libc_calloc(std::size_t, std::size_t);
void *__libc_realloc(void *, std::size_t);
}

namespace {

CallShim *shim = nullptr;
std::uintptr_t program_begin = 0;
std::uintptr_t program_end = 0;
__attribute__((tls_model("initial-exec"))) thread_local bool on_main_thread = false;

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
    dl_iterate_phdr(noteProgram, nullptr);
    shim = mapCallShim(kShimFile);
}

// Counts a call; true if it is the one that is to fail.
bool fails(ShimCall kind) {
    if (shim == nullptr) {
        return false;
    }
    ++shim->calls[kind];
    return shim->fail_in[kind] > 0 && shim->fail_in[kind].fetch_sub(1) == 1;
}

bool isOwnCode(const void *return_address) {
    const auto caller = reinterpret_cast<std::uintptr_t>(return_address);
    return caller >= program_begin && caller < program_end;
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

}  // namespace

// One stand-in: the real function is looked up once.
#define PASS_ON(name, ...)                                                                         \
    static const auto real = next<decltype(name)>(#name);                                          \
    return real(__VA_ARGS__)

extern "C" {

void *malloc(std::size_t size) {
    noteAllocation();
    const bool chosen = shim != nullptr && size != 0 && shim->fail_malloc_of == size;
    return fails(kShimMalloc) || chosen ? failWith<void *>(ENOMEM, nullptr) : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) {
    noteAllocation();
    return __libc_calloc(count, size);
}

void *realloc(void *old, std::size_t size) {
    noteAllocation();
    return __libc_realloc(old, size);
}

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    if (shim != nullptr && on_main_thread && isOwnCode(__builtin_return_address(0))) {
        ++shim->own_main_locks;
    }
    PASS_ON(pthread_mutex_lock, mutex);
}

int socket(int domain, int type, int protocol) noexcept {
    if (fails(kShimSocket)) {
        return failWith(EMFILE, -1);
    }
    PASS_ON(socket, domain, type, protocol);
}

int bind(int fd, const sockaddr *address, socklen_t size) noexcept {
    if (fails(kShimBind)) {
        return failWith(EADDRINUSE, -1);
    }
    PASS_ON(bind, fd, address, size);
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

ssize_t write(int fd, const void *data, std::size_t size) {
    if (fails(kShimWrite)) {
        return failWith(ENOSPC, -1);
    }
    PASS_ON(write, fd, data, size);
}

int close(int fd) {
    const bool chosen = fails(kShimClose);
    static const auto real = next<decltype(close)>("close");
    const int result = real(fd);  // a close that fails has closed all the same
    return chosen ? failWith(EIO, -1) : result;
}

int getaddrinfo(const char *node, const char *service, const addrinfo *hints, addrinfo **list) {
    if (fails(kShimGetaddrinfo)) {
        return EAI_AGAIN;
    }
    PASS_ON(getaddrinfo, node, service, hints, list);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                   void *argument) noexcept {
    if (fails(isOwnCode(__builtin_return_address(0)) ? kShimOwnThread : kShimLibraryThread)) {
        return EAGAIN;
    }
    PASS_ON(pthread_create, thread, attributes, entry, argument);
}

int posix_fallocate(int fd, off_t offset, off_t size) {
    if (fails(kShimFallocate)) {
        return ENOSPC;
    }
    PASS_ON(posix_fallocate, fd, offset, size);
}

int srt_recvmsg(SRTSOCKET sock, char *buffer, int size) {
    // A failure leaves its reason with libsrt: here, that there is no such socket.
    PASS_ON(srt_recvmsg, fails(kShimSrtRecvmsg) ? SRT_INVALID_SOCK : sock, buffer, size);
}

SRTSOCKET srt_accept(SRTSOCKET sock, sockaddr *address, int *size) {
    PASS_ON(srt_accept, fails(kShimSrtAccept) ? SRT_INVALID_SOCK : sock, address, size);
}

int srt_startup() {
    if (fails(kShimSrtStartup)) {
        return SRT_ERROR;
    }
    PASS_ON(srt_startup);
}

}  // extern "C"
