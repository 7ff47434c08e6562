#include "net/log.h"

#include <cstdio>

#include "net/mongoose.h"

int mg_log_level = MG_LL_INFO;

namespace net {

void logError(const char *what, const char *why) {
    if (mg_log_level >= MG_LL_ERROR) {
        std::printf("http: %s: %s\n", what, why);
    }
}

}  // namespace net
