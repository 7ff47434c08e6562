#include "api/firmware_routes.h"

#include <set>
#include <string>

#include <syslog.h>
#include <unistd.h>

#include "api/api_handler.h"
#include "api/api_request.h"
#include "api/firmware_files.h"
#include "api/firmware_server.h"
#include "api/json_reply.h"
#include "api/run_command.h"

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
std::string nameIn(const ApiRequest &request) {
    const Json::Value name = request.member("update");
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

void startScript(const std::string &name) {
    syslog(LOG_INFO, "Updating to %s", name.c_str());
    editCrontab();
    runCommand(("sh " + (kFirmwarePath + name) + "&").c_str());
}

// Up while it lives, and for good once the script has been started.
class UpdateGate {
public:
    UpdateGate() { api_words.update_gate = 1; }
    ~UpdateGate() { api_words.update_gate = started ? 1 : 0; }
    UpdateGate(const UpdateGate &) = delete;
    UpdateGate &operator=(const UpdateGate &) = delete;

    void keepUp() { started = true; }

private:
    bool started = false;
};

}  // namespace

void listLocalFirmware(const ApiRequest &request) {
    const std::string prefix = std::string(kFirmwarePrefix) + firmwarePlatform();
    replyUpdates(request.connection, jsonArray(localFirmware(kFirmwareDirectory, prefix)));
}

void listServerFirmware(const ApiRequest &request) {
    std::set<std::string> names;
    listFirmware(names, firmwarePlatform());
    replyUpdates(request.connection, jsonArray(names));
}

void startLocalFirmware(const ApiRequest &request) {
    const std::string name = nameIn(request);
    if (name.empty() || !isFirmwareFile(kFirmwarePath + name)) {
        replyUnusable(request.connection);
        return;
    }
    pruneFirmware(name, kFirmwarePath);
    startScript(name);
    replyEmpty(request.connection);
    api_words.update_gate = 1;
}

void startServerFirmware(const ApiRequest &request) {
    const std::string name = nameIn(request);
    if (name.empty()) {
        replyUnusable(request.connection);
        return;
    }
    UpdateGate gate;
    replyEmpty(request.connection);
    if (!downloadFirmware(kFirmwareUrl, name, kFirmwarePath).empty()) {
        startScript(name);
        gate.keepUp();
    }
}
