// A pthread mutex that clang can reason about: with -Wthread-safety the compiler
// refuses any access to a GUARDED_BY member outside a MutexLock.
//
// Not recursive. Rule of this program: no lock is taken while another is held.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define TIDEWELL_ANNOTATE(x) __attribute__((x))
#else
#define TIDEWELL_ANNOTATE(x)
#endif
#define GUARDED_BY(mutex) TIDEWELL_ANNOTATE(guarded_by(mutex))
#define REQUIRES(mutex) TIDEWELL_ANNOTATE(requires_capability(mutex))
#define EXCLUDES(mutex) TIDEWELL_ANNOTATE(locks_excluded(mutex))

class TIDEWELL_ANNOTATE(capability("mutex")) Mutex {
public:
    Mutex() { pthread_mutex_init(&handle, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&handle); }
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

    void lock() TIDEWELL_ANNOTATE(acquire_capability()) { pthread_mutex_lock(&handle); }
    void unlock() TIDEWELL_ANNOTATE(release_capability()) { pthread_mutex_unlock(&handle); }

private:
    pthread_mutex_t handle;
};

class TIDEWELL_ANNOTATE(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex &held) TIDEWELL_ANNOTATE(acquire_capability(held)) : mutex(held) {
        mutex.lock();
    }
    ~MutexLock() TIDEWELL_ANNOTATE(release_capability()) { mutex.unlock(); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

private:
    Mutex &mutex;
};
