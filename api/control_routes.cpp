#include "api/control_routes.h"

#include <unistd.h>

#include "api/api_context.h"
#include "api/json_message.h"
#include "api/run_command.h"
#include "core/shared/shared_words.h"
#include "core/shared/system_log.h"

namespace {

void askForReboot() {
    systemLog(LOG_INFO, "Rebooting");
    if (access("/sbin/shutdown", X_OK) == 0) {
        runCommand("/sbin/shutdown -r now");
    } else {
        runCommand("/sbin/reboot");
    }
}

}  // namespace

// The command may hang, or take the network away at once.
http::Reply rebootUnit(ApiContext &, const http::Request &) {
    http::Reply reply = replyEmpty();
    reply.afterwards = askForReboot;
    return reply;
}

http::Reply restartProcess(ApiContext &, const http::Request &) {
    http::Reply reply = replyEmpty();
    reply.afterwards = [] {
        systemLog(LOG_INFO, "Restarting");
        stop_flag = 1;
    };
    return reply;
}

http::Reply resetInput(ApiContext &, const http::Request &) {
    runCommand("/usr/local/bin/cmd *.dcmd DIT IP RESET");
    return replyEmpty();
}

http::Reply serveThumbnail(ApiContext &context, const http::Request &) {
    ThumbnailSource &source = context.thumbnail;
    source.fetch();
    http::Reply reply;
    reply.head.append("HTTP/1.0 200 OK\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n"
                      "Expires: Thu, 01 Dec 1994 16:00:00 GMT\r\nContent-Type: image/");
    reply.head.append(source.imageType()).append("\r\nContent-Length: ");
    reply.head.append(std::to_string(source.image().size())).append("\r\n\r\n");
    reply.body.append(source.image()).append("\r\n");
    reply.close = true;
    return reply;
}
