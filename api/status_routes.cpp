#include "api/status_routes.h"

#include <optional>

#include "api/api_handler.h"
#include "api/api_request.h"
#include "api/json_reply.h"
#include "config/config_store.h"
#include "core/shared/mutex.h"
#include "device/audio_levels.h"
#include "endpoints/stats_document.h"
#include "net/mongoose.h"

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

void serveStats(const ApiRequest &request) {
    const ApiParts &parts = request.handler().parts;
    Json::Value document = copyOf(*parts.stats);
    document["current_idx"] = CurrentIdx::slotOf(parts.current_idx->load());
    document["audio_levels"] = audioLevels();
    replyJson(request.connection, document);
}

void resetStats(const ApiRequest &request) {
    replyEmpty(request.connection);
}

void serveConfig(const ApiRequest &request) {
    const std::string document = request.handler().parts.store->urisJson();
    mg_http_reply(request.connection, 200, kJsonHeaders, "%s\n", document.c_str());
}

void applyConfig(const ApiRequest &request) {
    ApiHandler &handler = request.handler();
    const std::string body = request.body();
    checkRoute();
    handler.setCfg(body.substr(0, body.find('\0')));
    handler.parts.current_idx->choose(0);
    *handler.parts.change_flag = 1;  // the pump may have lowered it before the index was set
    replyStatus(request.connection, true);
}

void selectSource(const ApiRequest &request) {
    const ApiParts &parts = request.handler().parts;
    const std::optional<int> slot = slotIn(request.member("index"));
    if (slot) {
        parts.current_idx->choose(*slot);
        *parts.change_flag = 1;
    }
    replyStatus(request.connection, slot.has_value());
}

void serveLog(const ApiRequest &request) {
    mg_http_serve_opts options{};
    options.root_dir = "/tmp";
    options.is_log = true;
    mg_http_serve_dir(request.connection, request.message, &options);
}

void serveWebRoot(const ApiRequest &request) {
    const bool packed = request.api != nullptr && request.api->parts.packed;
    mg_http_serve_opts options{};
    options.root_dir = packed ? "/web_root" : "web_root";
    options.fs = packed ? &mg_fs_packed : nullptr;
    mg_http_serve_dir(request.connection, request.message, &options);
}
