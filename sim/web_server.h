// The HTTP servers that the product asks: the unit's own with the thumbnail, and the
// firmware server. Both are this one at port 80 of the loopback, where the sandbox's
// name table leads the firmware server's name as well.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/file_descriptor.h"

namespace sim {

// How requests are met.
enum class WebManner {
    answer,     // properly
    hang,       // accepted, and nothing is said until the manner changes
    break_off,  // half of the reply, then the connection is cut
};

// Serves, one client at a time, "/encThumbnail" (GIF) and "/thumbnail0.jpg" (JPEG) with a
// picture that is another one each time, "/uploads/" as a directory page with one link a
// line, the files in it, and what setReply() names; all else is 404.
//
// Requires: the sandbox.
// Threads:  one of its own serves; any may change what is served.
// Errors:   std::system_error if port 80 is taken.
class WebServer {
public:
    WebServer();
    ~WebServer();
    WebServer(const WebServer &) = delete;
    WebServer &operator=(const WebServer &) = delete;

    // Fixes the body at a path, with status 200 or another.
    void setReply(const std::string &path, const std::string &body, unsigned status = 200);
    // A firmware file on offer.
    void addUpload(const std::string &name, const std::string &content);
    void setManner(WebManner new_manner) { manner = new_manner; }

    // Paths asked for, oldest first.
    [[nodiscard]] std::vector<std::string> requests() const;
    // The last request's head, as it came.
    [[nodiscard]] std::string lastHead() const;

private:
    struct Reply {
        unsigned status;
        std::string body;
    };

    void run();
    void serve(const FileDescriptor &client);
    Reply replyTo(const std::string &head);
    [[nodiscard]] std::string uploadsPage() const;

    FileDescriptor listener;
    mutable std::mutex mutex;
    std::map<std::string, Reply> replies;        // guarded by mutex
    std::map<std::string, std::string> uploads;  // guarded by mutex
    std::vector<std::string> asked;              // guarded by mutex
    std::string last_head;                       // guarded by mutex
    unsigned picture = 0;                        // own thread only
    std::atomic<WebManner> manner{WebManner::answer};
    std::atomic<bool> stop{false};
    std::thread thread;
};

}  // namespace sim
