// What the routes work on: the handler that they belong to, and what the API thread keeps from
// one request to the next.
#pragma once

#include "device/thumbnail_source.h"
#include "http/static_files.h"

class ApiHandler;

// Threads: API thread only.
// Owner:   ApiHandler::run(), for as long as it runs.
struct ApiContext {
    explicit ApiContext(ApiHandler &handler);

    ApiHandler &api;
    ThumbnailSource thumbnail;
    const http::StaticFiles web_root;
    bool update_gate = false;  // an update's script has been started: no request is answered
};
