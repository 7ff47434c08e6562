// A stand-in for /dev/proxyimg, whose two ioctl requests deliver audio level words.
//
// No file of ours can answer an ioctl, so the request is answered at the system call's
// door: the daemon is started with a seccomp filter that hands these two requests to
// this process. Everything else, and these requests on any other file, passes. A
// preloaded library would do, but not beside a sanitizer's.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/file_descriptor.h"

namespace sim {

// Serves one daemon.
//
// Requires: the sandbox.
// Threads:  one of its own answers; any may change the words.
// Errors:   std::system_error if the device cannot be made.
class ProxyImage {
public:
    ProxyImage();
    ~ProxyImage();  // removes the device
    ProxyImage(const ProxyImage &) = delete;
    ProxyImage &operator=(const ProxyImage &) = delete;

    // What DaemonOptions::before_exec must do in the daemon's process.
    [[nodiscard]] std::function<void()> installer() const;

    // A level word as the device delivers it; channel 0 to 15, 20 bits of level.
    static constexpr std::uint32_t word(std::uint32_t channel, std::uint32_t level) {
        return channel << 28U | (level & 0xFFFFFU) << 4U;
    }
    // Delivered one after the other, then from the beginning again.
    void setWords(std::vector<std::uint32_t> level_words);

    [[nodiscard]] int startRequests() const { return starts; }
    [[nodiscard]] int wordRequests() const { return word_requests; }

private:
    struct Answer {
        std::int64_t value = 0;
        std::int32_t error = 0;  // minus errno
        bool pass_on = false;    // the kernel is to run the call
    };

    void run();
    FileDescriptor receiveDoor();
    void answerOne(int door);
    Answer answerTo(std::uint32_t process, const std::uint64_t *arguments);
    Answer deliverWord(std::uint32_t process, std::uint64_t address);

    FileDescriptor daemon_end;  // of the way by which the door comes here
    FileDescriptor own_end;
    std::mutex mutex;
    std::vector<std::uint32_t> words;  // guarded by mutex
    std::size_t next_word = 0;         // guarded by mutex
    std::atomic<int> starts{0};
    std::atomic<int> word_requests{0};
    std::atomic<bool> stop{false};
    std::thread thread;
};

}  // namespace sim
