// The layer's few lines on stdout, all of them about failures of its own sockets. Nothing that
// a client sends is logged, so that no client can fill a log.
#pragma once

namespace net {

// Printed if mg_log_level is MG_LL_ERROR or above.
void logError(const char *what, const char *why);

}  // namespace net
