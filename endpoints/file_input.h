// The encoder family's source: the device through which the route driver delivers the
// unit's transport stream.
//
// Whether the driver's read blocks is the driver's matter. Where it does, a CallLimit keeps
// it from lasting longer than a second, so that a stop and new settings are never missed.
#pragma once

#include <string>

#include <sys/types.h>

// Threads: main thread only.  Owner: main(), across all streams.
// Errors:  the constructor says so on stderr and throws the int 1; it throws without a word
//          where a stop ends its wait for the device.
class file_input_t {
public:
    explicit file_input_t(const std::string &device_path);
    virtual ~file_input_t();
    file_input_t(const file_input_t &) = delete;
    file_input_t &operator=(const file_input_t &) = delete;

    // Reads at most `length` bytes, rounded down to whole payloads. Returns the bytes
    // read, as few as the device gave; kNothingDone for nothing, the end of the file and
    // every error; kFailed if no file is open.
    virtual ssize_t read(char *buffer, std::size_t length);

private:
    int fd;
};
