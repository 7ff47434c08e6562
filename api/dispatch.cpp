#include "api/dispatch.h"

#include <cstdio>

#include "api/api_context.h"
#include "api/capabilities.h"
#include "api/control_routes.h"
#include "api/firmware_routes.h"
#include "api/json_message.h"
#include "api/ping.h"
#include "api/status_routes.h"

namespace {

struct Route {
    const char *path;
    http::Reply (*run)(ApiContext &context, const http::Request &request);
    http::Reply (*reply_on_failure)();
};

constexpr Route kRoutes[] = {
    {"/api/stats", serveStats, replyEmpty},
    {"/api/stats/reset", resetStats, replyEmpty},
    {"/api/cfg/get", serveConfig, replyError},
    {"/api/cfg/set", applyConfig, replyError},
    {"/api/source/set", selectSource, replyError},
    {"/api/caps", serveCapabilities, replyEmpty},
    {"/api/thumb", serveThumbnail, replyError},
    {"/api/encthumb", serveThumbnail, replyError},
    {"/api/ping", servePing, replyNoPing},
    {"/api/reboot/set", rebootUnit, replyEmpty},
    {"/api/restart/set", restartProcess, replyEmpty},
    {"/api/localfirmware/get", listLocalFirmware, replyNoUpdates},
    {"/api/localfirmware/set", startLocalFirmware, replyUnusable},
    {"/api/firmware/get", listServerFirmware, replyNoUpdates},
    {"/api/firmware/set", startServerFirmware, replyUnusable},
    {"/proxy.log", serveLog, replyError},
    {"/api/wq_input_reset", resetInput, replyEmpty},
};
constexpr Route kWebRoot{"/", serveWebRoot, replyError};

const Route &routeOf(const http::Request &request) {
    for (const Route &route : kRoutes) {
        if (request.path == route.path) {
            return route;
        }
    }
    return kWebRoot;
}

}  // namespace

std::optional<http::Reply> answer(ApiContext &context, const http::Request &request) {
    if (context.update_gate) {
        return std::nullopt;
    }
    const Route &route = routeOf(request);
    try {
        return route.run(context, request);
    } catch (...) {
        fprintf(stderr, "API route %s failed\n", route.path);
        return route.reply_on_failure();
    }
}
