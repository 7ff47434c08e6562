// /dev/audiolevels: a line of numbers that is another one at each opening.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace sim {

// The device is a plain file that is replaced as a whole ten times a second, with 16
// levels that rise and fall; setLine() holds it at one line.
//
// Requires: the sandbox.
// Threads:  one of its own moves the line; any may set it.
class AudioLevels {
public:
    AudioLevels();
    ~AudioLevels();  // removes the device
    AudioLevels(const AudioLevels &) = delete;
    AudioLevels &operator=(const AudioLevels &) = delete;

    // Exactly these bytes from here on.
    void setLine(const std::string &text);

private:
    void run();
    void replace(const std::string &text);

    std::mutex mutex;     // covers the file
    bool is_set = false;  // guarded by mutex
    std::atomic<bool> stop{false};
    std::thread thread;
};

}  // namespace sim
