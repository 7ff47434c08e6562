#include "api/dispatch.h"

#include <cstdio>

#include "api/api_handler.h"
#include "api/api_request.h"
#include "api/capabilities.h"
#include "api/control_routes.h"
#include "api/firmware_routes.h"
#include "api/json_reply.h"
#include "api/ping.h"
#include "api/status_routes.h"
#include "net/mongoose.h"

namespace {

struct Route {
    const char *path;
    void (*run)(const ApiRequest &request);
    void (*reply_on_failure)(mg_connection *connection);
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

const Route &routeOf(const mg_http_message &message) {
    for (const Route &route : kRoutes) {
        if (mg_match(message.uri, mg_str(route.path), nullptr)) {
            return route;
        }
    }
    return kWebRoot;
}

// The connection is still marked as waiting for its reply while none has been made.
void runRoute(const Route &route, const ApiRequest &request) {
    try {
        route.run(request);
    } catch (...) {
        fprintf(stderr, "API route %s failed\n", route.path);
        if (request.connection->is_resp) {
            route.reply_on_failure(request.connection);
        }
    }
}

}  // namespace

void apiEventHandler(mg_connection *connection, int event, void *event_data) {
    if (event != MG_EV_HTTP_MSG || api_words.update_gate != 0) {
        return;
    }
    const ApiRequest request{.connection = connection,
                             .message = static_cast<mg_http_message *>(event_data),
                             .api = static_cast<ApiHandler *>(connection->fn_data)};
    try {
        runRoute(routeOf(*request.message), request);
    } catch (...) {  // no memory for the reply
        connection->is_closing = 1;
    }
}
