// The management API: everything that the unit can be asked or told goes through TCP port
// 8000, answered by one thread, one request after another.
//
// There is no login: who reaches the port can use every route, and the method of a request
// is never looked at. A slow route (ping, firmware transfer, thumbnail) holds up all others
// but never the stream, which shares nothing with this thread but three words, the store
// and the stats document.
#pragma once

#include <atomic>
#include <string>

#include <pthread.h>

#include "core/shared/shared_words.h"
#include "http/file_tree.h"

class ConfigStore;
class RouteDevice;
struct StatsDocument;

// Borrowed from main(), which outlives the handler, and what main() has decided.
struct ApiParts {
    ConfigStore *store;
    ChangeFlag *change_flag;
    bool thumbnails;  // the unit encodes, and its web server offers the encoder's image
    bool packed;      // serve the web root inside the executable, not the one on disk
    CurrentIdx *current_idx;
    StatsDocument *stats;
    RouteDevice *route_device;  // null on the decoder family
    http::PackedTable assets;   // the web root inside the executable
};

// Threads: constructed and destroyed on the main thread; the API thread runs in between.
// Owner:   main(), which destroys it before anything in ApiParts.
// Errors:  a thread that cannot be started is told through syslog, then the int 1 thrown.
//          A port that cannot be bound is no error: the thread keeps trying.
class ApiHandler {
public:
    // The thread answers requests from in here on.
    explicit ApiHandler(const ApiParts &api_parts);

    // Joins the thread: two seconds at most, but for a name that is being looked up.
    ~ApiHandler();
    ApiHandler(const ApiHandler &) = delete;
    ApiHandler &operator=(const ApiHandler &) = delete;

    // Hands a client's settings to the store and asks the pump to reopen the stream. True
    // whatever the store did with them.
    bool setCfg(const std::string &text);

    // Asks the route driver for the encoder's route if it has lost it. A driver that takes only
    // a part of the command is asked again on the next pass. API thread only.
    void checkRoute();

    // The API thread's work, until the destructor raises the stop byte.
    void run();

    const ApiParts parts;  // fixed at construction

private:
    pthread_t thread{};             // main thread only
    std::atomic<bool> stop{false};  // atomic: destructor raises, API thread reads
};
