#include "api/dispatch.h"

#include <cstdio>

#include "api/api_context.h"
#include "api/capabilities.h"
#include "api/control_routes.h"
#include "api/firmware_routes.h"
#include "api/json_message.h"
#include "api/ping.h"
#include "api/status_routes.h"
#include "core/shared/shared_words.h"

namespace {

struct Route {
    const char *path;
    http::Reply (*run)(ApiContext &context, const http::Request &request);
    http::Reply (*reply_on_failure)();
    bool waits = false;  // for somebody else; not begun any more once the process has to stop
};

constexpr Route kRoutes[] = {
    {"/api/stats", serveStats, replyEmpty},
    {"/api/stats/reset", resetStats, replyEmpty},
    {"/api/cfg/get", serveConfig, replyError},
    {"/api/cfg/set", applyConfig, replyError},
    {"/api/source/set", selectSource, replyError},
    {"/api/caps", serveCapabilities, replyEmpty},
    {"/api/thumb", serveThumbnail, replyError, true},
    {"/api/encthumb", serveThumbnail, replyError, true},
    {"/api/ping", servePing, replyNoPing, true},
    {"/api/reboot/set", rebootUnit, replyEmpty},
    {"/api/restart/set", restartProcess, replyEmpty},
    {"/api/localfirmware/get", listLocalFirmware, replyNoUpdates},
    {"/api/localfirmware/set", startLocalFirmware, replyUnusable},
    {"/api/firmware/get", listServerFirmware, replyNoUpdates, true},
    {"/api/firmware/set", startServerFirmware, replyUnusable, true},
    {"/proxy.log", serveLog, replyError},
    {"/api/wq_input_reset", resetInput, replyEmpty, true},
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
    if (route.waits && stop_flag != 0) {
        return route.reply_on_failure();
    }
    try {
        return route.run(context, request);
    } catch (...) {
        fprintf(stderr, "API route %s failed\n", route.path);
        return route.reply_on_failure();
    }
}
