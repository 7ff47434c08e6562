#include "api/status_routes.h"

#include <optional>

#include "api/api_context.h"
#include "api/api_handler.h"
#include "api/json_message.h"
#include "config/config_store.h"
#include "core/shared/mutex.h"
#include "device/audio_levels.h"
#include "endpoints/stats_document.h"

namespace {

Json::Value copyOf(StatsDocument &stats) {
    const MutexLock lock(stats.stats_mutex);
    return stats.document;
}

// 0 or 1. A fraction counts as the whole number below it.
std::optional<int> slotIn(const Json::Value &index) {
    if (!index.isNumeric()) {
        return std::nullopt;
    }
    const double number = index.asDouble();
    return number >= 0 && number < 2 ? std::optional(static_cast<int>(number)) : std::nullopt;
}

}  // namespace

http::Reply serveStats(ApiContext &context, const http::Request &) {
    const ApiParts &parts = context.api.parts;
    Json::Value document = copyOf(*parts.stats);
    document["current_idx"] = CurrentIdx::slotOf(parts.current_idx->load());
    document["audio_levels"] = audioLevels();
    return replyJson(document);
}

http::Reply resetStats(ApiContext &, const http::Request &) {
    return replyEmpty();
}

http::Reply serveConfig(ApiContext &context, const http::Request &) {
    return replyText(context.api.parts.store->urisJson());
}

http::Reply applyConfig(ApiContext &context, const http::Request &request) {
    ApiHandler &api = context.api;
    api.checkRoute();
    api.setCfg(std::string(request.body.substr(0, request.body.find('\0'))));
    api.parts.current_idx->choose(0);
    *api.parts.change_flag = 1;  // the pump may have lowered it before the index was set
    return replyStatus(true);
}

http::Reply selectSource(ApiContext &context, const http::Request &request) {
    const ApiParts &parts = context.api.parts;
    const std::optional<int> slot = slotIn(memberOf(request, "index"));
    if (slot) {
        parts.current_idx->choose(*slot);
        *parts.change_flag = 1;
    }
    return replyStatus(slot.has_value());
}

http::Reply serveLog(ApiContext &, const http::Request &request) {
    return http::answerWithLog(request, "/tmp/proxy.log");
}

http::Reply serveWebRoot(ApiContext &context, const http::Request &request) {
    return context.web_root.answer(request);
}
