// Listing the firmware files, on the unit and on the server, and starting an update.
//
// An update is the firmware file itself: a script that is started and left alone, and that
// ends this process when it sees fit. From then on the update gate is up and the API answers
// nobody; the stream goes on.
#pragma once

#include "http/reply.h"

struct ApiContext;

http::Reply listLocalFirmware(ApiContext &context, const http::Request &request);
http::Reply listServerFirmware(ApiContext &context, const http::Request &request);

// Starts a file that lies on the unit, and raises the gate.
http::Reply startLocalFirmware(ApiContext &context, const http::Request &request);

// Downloads a file and starts it, and raises the gate. The client gets its reply when the
// download has ended, and the same one where that failed: then the gate stays down.
http::Reply startServerFirmware(ApiContext &context, const http::Request &request);
