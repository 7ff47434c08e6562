#include "api/api_handler.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "api/api_context.h"
#include "api/dispatch.h"
#include "config/config_store.h"
#include "core/shared/system_log.h"
#include "device/route_device.h"
#include "http/server.h"

namespace {

constexpr std::uint16_t kPort = 8000;
constexpr int kPollMs = 2000;
constexpr int kStoppingPollMs = 100;  // so that the last long wait runs beside the pump's

// Tries unless it listens. Says so at the first failure and at the success after one.
void listenAgain(http::Server &server, bool &failed) {
    if (server.isListening()) {
        return;
    }
    const int error = server.listen(kPort);
    if (error != 0 && !failed) {
        systemLog(LOG_ERR, "Could not listen on port %d, trying again: %s", kPort, strerror(error));
    } else if (error == 0 && failed) {
        systemLog(LOG_INFO, "Listening on port %d", kPort);
    }
    failed = error != 0;
}

http::StaticFiles webRoot(const ApiParts &parts) {
    if (parts.packed) {
        return {std::make_unique<http::PackedTree>(parts.assets), "/web_root"};
    }
    return {std::make_unique<http::DiskTree>(), "web_root"};
}

void *api_thread_entry(void *handler) {
    static_cast<ApiHandler *>(handler)->run();
    return nullptr;
}

}  // namespace

ApiContext::ApiContext(ApiHandler &handler)
    : api(handler), thumbnail(handler.parts.thumbnails), web_root(webRoot(handler.parts)) {}

ApiHandler::ApiHandler(const ApiParts &api_parts) : parts(api_parts) {
    printf("Using %spacked fs\n", parts.packed ? "" : "un");
    const int failure = pthread_create(&thread, nullptr, api_thread_entry, this);
    if (failure != 0) {
        systemLog(LOG_ERR, "Could not start the API thread: %s", strerror(failure));
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
    ApiContext context(*this);
    http::Server server([&](const http::Request &request) { return answer(context, request); });
    for (bool failed = false; !stop;) {
        listenAgain(server, failed);
        server.poll(stop_flag == 0 ? kPollMs : kStoppingPollMs);
        checkRoute();
    }
    server.poll(0);  // requests are taken to the last
}

void ApiHandler::checkRoute() {
    if (parts.route_device == nullptr || stop_flag != 0) {
        return;
    }
    try {
        parts.route_device->ensureRoute();
    } catch (...) {  // it has said so on stdout
    }
}
