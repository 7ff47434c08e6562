// The routes that act on the unit or on the process, and the thumbnail.
#pragma once

#include "http/reply.h"

struct ApiContext;

// Replies, then asks the operating system to reboot. This process goes on until that ends it.
http::Reply rebootUnit(ApiContext &context, const http::Request &request);

// Replies, then raises the stop flag. Whatever started the process starts it again.
http::Reply restartProcess(ApiContext &context, const http::Request &request);

// Replies once the unit's command tool has ended.
http::Reply resetInput(ApiContext &context, const http::Request &request);

// The image as it is now or, where it cannot be fetched, as it last was; always status 200.
// Two bytes stand behind the counted body, so the connection is closed after it.
http::Reply serveThumbnail(ApiContext &context, const http::Request &request);
