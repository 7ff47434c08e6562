// struct mg_mgr's life, and the two ways to a connection.
#include <chrono>
#include <csignal>
#include <exception>
#include <memory>
#include <thread>

#include "net/client_connection.h"
#include "net/listener.h"
#include "net/log.h"
#include "net/loop.h"
#include "net/mongoose.h"

namespace {

void makeLoop(mg_mgr *manager) {
    try {
        manager->loop = new net::Loop(manager);
    } catch (const std::exception &error) {
        net::logError("event loop", error.what());
    }
}

// A connection of the wanted kind in the manager's list, or null.
template <class Kind>
mg_connection *open(mg_mgr *manager, const char *url, mg_event_handler_t fn, void *fn_data) {
    if (manager->loop == nullptr) {
        makeLoop(manager);
    }
    if (manager->loop == nullptr) {
        return nullptr;
    }
    try {
        return Kind::open(*manager->loop, url, fn, fn_data);
    } catch (const std::exception &error) {
        net::logError(url, error.what());
        return nullptr;
    }
}

}  // namespace

void mg_mgr_init(struct mg_mgr *mgr) {
    std::signal(SIGPIPE, SIG_IGN);
    *mgr = {};
    makeLoop(mgr);
}

void mg_mgr_poll(struct mg_mgr *mgr, int ms) {
    if (mgr->loop != nullptr) {
        mgr->loop->poll(ms);
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }
}

void mg_mgr_free(struct mg_mgr *mgr) {
    delete mgr->loop;
    *mgr = {};
}

struct mg_connection *mg_http_listen(struct mg_mgr *mgr, const char *url, mg_event_handler_t fn,
                                     void *fn_data) {
    return open<net::Listener>(mgr, url, fn, fn_data);
}

struct mg_connection *mg_http_connect(struct mg_mgr *mgr, const char *url, mg_event_handler_t fn,
                                      void *fn_data) {
    return open<net::ClientConnection>(mgr, url, fn, fn_data);
}

uint64_t mg_millis(void) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}
