// A daemon whose calls its owner counts and makes fail.
#pragma once

#include <functional>
#include <memory>

#include "sim/call_shim.h"
#include "sim/daemon.h"

namespace sim {

// Requires: kShimWorks, the sandbox. One at a time.
class ShimmedDaemon {
public:
    // `arm` sets what is to fail from the very first call on.
    explicit ShimmedDaemon(
        DaemonOptions options, const std::function<void(CallShim &)> &arm = [](CallShim &) {});
    ~ShimmedDaemon();
    ShimmedDaemon(const ShimmedDaemon &) = delete;
    ShimmedDaemon &operator=(const ShimmedDaemon &) = delete;

    Daemon *operator->() { return daemon.get(); }

    CallShim *const shim;

private:
    std::unique_ptr<Daemon> daemon;
};

}  // namespace sim
