#include "api/api_handler.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include <syslog.h>

#include "api/dispatch.h"
#include "config/config_store.h"
#include "device/route_device.h"
#include "device/thumbnail_source.h"
#include "net/mongoose.h"

namespace {

constexpr const char *kAddress = "http://0.0.0.0:8000";
constexpr int kPollMs = 2000;
constexpr int kStoppingPollMs = 100;  // so that the last long wait runs beside the pump's

// The listening socket, or the attempts to get one.
class Listener {
public:
    Listener(mg_mgr &event_manager, ApiHandler &api) : manager(event_manager), handler(api) {}

    // Tries unless it listens. Says so at the first failure and at the success after one; the
    // HTTP layer, which tells each failure, is kept silent in between.
    void ensure() {
        if (listening) {
            return;
        }
        const int log_level = mg_log_level;
        mg_log_level = failed ? MG_LL_NONE : log_level;
        listening = mg_http_listen(&manager, kAddress, apiEventHandler, &handler) != nullptr;
        mg_log_level = log_level;
        if (!listening && !failed) {
            syslog(LOG_ERR, "Could not listen on port 8000, trying again");
        } else if (listening && failed) {
            syslog(LOG_INFO, "Listening on port 8000");
        }
        failed = !listening;
    }

private:
    mg_mgr &manager;
    ApiHandler &handler;
    bool listening = false;
    bool failed = false;
};

// What one pass has queued is surely sent in the next.
void sendQueued(mg_mgr &manager) {
    mg_mgr_poll(&manager, 0);
}

// What the last request wants done once its reply is on its way.
void carryOutAfterReply(mg_mgr &manager) {
    if (api_words.after_reply == nullptr) {
        return;
    }
    sendQueued(manager);
    try {
        std::exchange(api_words.after_reply, nullptr)();
    } catch (const std::bad_alloc &) {
        syslog(LOG_ERR, "No memory for the command");
    }
}

void *api_thread_entry(void *handler) {
    static_cast<ApiHandler *>(handler)->run();
    return nullptr;
}

}  // namespace

ApiWords api_words;

ApiHandler::ApiHandler(const ApiParts &api_parts) : parts(api_parts) {
    printf("Using %spacked fs\n", parts.packed ? "" : "un");
    api_words.route_device = parts.route_device;
    const int failure = pthread_create(&thread, nullptr, api_thread_entry, this);
    if (failure != 0) {
        syslog(LOG_ERR, "Could not start the API thread: %s", strerror(failure));
        throw 1;
    }
}

ApiHandler::~ApiHandler() {
    fputs("API handler exit\n", stderr);
    stop = true;
    pthread_join(thread, nullptr);
}

bool ApiHandler::setCfg(const std::string &text) {
    printf("%s: %s\n", "setCfg", text.c_str());
    parts.store->applyDocument(text);
    *parts.change_flag = 1;
    return true;
}

void ApiHandler::run() {
    fputs("API handler running\n", stderr);
    mg_mgr manager;
    mg_mgr_init(&manager);
    Listener listener(manager, *this);
    ThumbnailSource thumbnail_source(parts.thumbnails);
    api_words.thumbnail_source = &thumbnail_source;
    while (!stop) {
        listener.ensure();
        mg_mgr_poll(&manager, stop_flag == 0 ? kPollMs : kStoppingPollMs);
        carryOutAfterReply(manager);
        checkRoute();
    }
    sendQueued(manager);
    carryOutAfterReply(manager);  // requests are taken to the last
    api_words.thumbnail_source = nullptr;
    mg_mgr_free(&manager);
}

void checkRoute() {
    if (api_words.route_device == nullptr) {
        return;
    }
    try {
        api_words.route_device->ensureRoute();
    } catch (...) {  // it has said so on stdout
    }
}
