// The dispatch table and the one guard around it.
#pragma once

#include <optional>

#include "http/reply.h"

struct ApiContext;

// Answers a request by the first route that has its path to the letter, else from the web
// root. While the update gate is up, nothing is answered at all. Where a route throws, the
// reply is the one that its row names; throws only where no memory is left for that.
std::optional<http::Reply> answer(ApiContext &context, const http::Request &request);
