// A daemon whose calls a test counts and makes fail.
#pragma once

#include "sim/daemon.h"
#include "tests/support/call_shim.h"

class ShimmedDaemon {
public:
    // `arm` sets what is to fail from the very first call on.
    explicit ShimmedDaemon(
        sim::DaemonOptions options, const std::function<void(CallShim &)> &arm = [](CallShim &) {})
        : shim(mapCallShim(kShimFile, O_CREAT | O_TRUNC)) {
        arm(*shim);
        options.env.emplace_back("LD_PRELOAD=" TIDEWELL_CALL_SHIM);
        daemon = std::make_unique<sim::Daemon>(options);
    }
    ~ShimmedDaemon() { munmap(shim, sizeof(CallShim)); }
    ShimmedDaemon(const ShimmedDaemon &) = delete;
    ShimmedDaemon &operator=(const ShimmedDaemon &) = delete;

    sim::Daemon *operator->() { return daemon.get(); }

    CallShim *const shim;

private:
    std::unique_ptr<sim::Daemon> daemon;
};
