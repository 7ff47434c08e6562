// One object in memory that a child process maps as well.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <new>

#include "sim/file_descriptor.h"
#include "sim/system_error.h"

namespace sim {

// `Object` starts as all zeroes; it holds plain values and lock-free atomics only, and
// is never destroyed.
template <typename Object>
class SharedObject {
public:
    SharedObject() : memory(check(memfd_create("unit_sim", MFD_CLOEXEC), "make shared memory")) {
        check(ftruncate(memory.get(), sizeof(Object)), "size shared memory");
        map();
    }
    // The other end: `inherited` is the descriptor that the parent made.
    explicit SharedObject(int inherited) : memory(inherited) { map(); }
    ~SharedObject() { munmap(object, sizeof(Object)); }
    SharedObject(const SharedObject &) = delete;
    SharedObject &operator=(const SharedObject &) = delete;

    [[nodiscard]] int descriptor() const { return memory.get(); }
    Object *operator->() { return object; }
    const Object *operator->() const { return object; }
    Object &operator*() { return *object; }
    const Object &operator*() const { return *object; }

private:
    void map() {
        void *const place =
            mmap(nullptr, sizeof(Object), PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0);
        if (place == MAP_FAILED) {
            throwErrno("map shared memory");
        }
        object = static_cast<Object *>(place);
    }

    FileDescriptor memory;
    Object *object = nullptr;
};

}  // namespace sim
