// The routes that show the state of the unit and take new stream settings.
#pragma once

#include "http/reply.h"

struct ApiContext;

// The stats document with the slot in use and the audio levels. The levels are a text that
// holds a JSON array, not an array.
http::Reply serveStats(ApiContext &context, const http::Request &request);

// Clears nothing: libsrt's counters run from the start of a connection.
http::Reply resetStats(ApiContext &context, const http::Request &request);

// Both stream addresses.
http::Reply serveConfig(ApiContext &context, const http::Request &request);

// Takes new addresses. Succeeds whatever the store does with them; the stream is closed and
// opened anew from the primary address in any case.
http::Reply applyConfig(ApiContext &context, const http::Request &request);

// Goes over to the address that `index` names, without a change of the settings.
http::Reply selectSource(ApiContext &context, const http::Request &request);

// The log's file.
http::Reply serveLog(ApiContext &context, const http::Request &request);

// The page and whatever else has no route.
http::Reply serveWebRoot(ApiContext &context, const http::Request &request);
