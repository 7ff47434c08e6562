#include "api/firmware_routes.h"

#include <set>
#include <string>

#include <unistd.h>

#include "api/api_context.h"
#include "api/firmware_files.h"
#include "api/firmware_server.h"
#include "api/json_message.h"
#include "api/run_command.h"
#include "core/shared/system_log.h"

namespace {

constexpr const char *kRootCrontab = "/var/spool/cron/crontabs/root";

template <class Names>
Json::Value jsonArray(const Names &names) {
    Json::Value list(Json::arrayValue);
    for (const std::string &name : names) {
        list.append(name);
    }
    return list;
}

// Empty if the request names none that may be used.
std::string nameIn(const http::Request &request) {
    const Json::Value name = memberOf(request, "update");
    return name.isString() && isFirmwareName(name.asString()) ? name.asString() : "";
}

// Takes out the line that would start this process again while the update runs.
void editCrontab() {
    if (access(kRootCrontab, F_OK) == 0) {
        runCommand("sed -i '/tidewell/d' /var/spool/cron/crontabs/root");
    } else {
        runCommand("sed -i '/init.d/d' /etc/cron.d/crontab");
    }
}

// From here on the API answers nobody.
void startScript(ApiContext &context, const std::string &name) {
    systemLog(LOG_INFO, "Updating to %s", name.c_str());
    editCrontab();
    runCommand(("sh " + (kFirmwareDirectory + name) + "&").c_str());
    context.update_gate = true;
}

}  // namespace

http::Reply listLocalFirmware(ApiContext &, const http::Request &) {
    const std::string prefix = std::string(kFirmwarePrefix) + firmwarePlatform();
    return replyUpdates(jsonArray(localFirmware(kFirmwareDirectory, prefix)));
}

http::Reply listServerFirmware(ApiContext &, const http::Request &) {
    std::set<std::string> names;
    listFirmware(names, firmwarePlatform());
    return replyUpdates(jsonArray(names));
}

http::Reply startLocalFirmware(ApiContext &context, const http::Request &request) {
    const std::string name = nameIn(request);
    if (name.empty() || !isFirmwareFile(kFirmwareDirectory + name)) {
        return replyUnusable();
    }
    pruneFirmware(name, kFirmwareDirectory);
    startScript(context, name);
    return replyEmpty();
}

http::Reply startServerFirmware(ApiContext &context, const http::Request &request) {
    const std::string name = nameIn(request);
    if (name.empty()) {
        return replyUnusable();
    }
    if (!downloadFirmware(kFirmwareUrl, name, kFirmwareDirectory).empty()) {
        startScript(context, name);
    }
    return replyEmpty();
}
