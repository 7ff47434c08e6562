#include "sim/shimmed_daemon.h"

namespace sim {

ShimmedDaemon::ShimmedDaemon(DaemonOptions options, const std::function<void(CallShim &)> &arm)
    : shim(mapCallShim(kShimFile, O_CREAT | O_TRUNC)) {
    arm(*shim);
    options.env.emplace_back("LD_PRELOAD=" TIDEWELL_CALL_SHIM);
    daemon = std::make_unique<Daemon>(options);
}

ShimmedDaemon::~ShimmedDaemon() {
    munmap(shim, sizeof(CallShim));
}

}  // namespace sim
