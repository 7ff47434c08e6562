// What a stream and the clients of the API take from one another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bench/stream_run.h"

namespace bench {

struct ApiResult {
    StreamResult stream;
    double replies_per_s = 0;  // to all clients together
    double median_ms = 0;      // from a request to its reply
    double p99_ms = 0;
};

// A decoder's stream, and beside it so many clients that ask for the live statistics, each
// again as soon as it has its reply. Errors: std::runtime_error if one gets none.
ApiResult streamBesideClients(std::size_t clients, std::uint64_t rate_mbit, const Span &span);

}  // namespace bench
