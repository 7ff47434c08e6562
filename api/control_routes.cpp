#include "api/control_routes.h"

#include <syslog.h>
#include <unistd.h>

#include "api/api_handler.h"
#include "api/api_request.h"
#include "api/json_reply.h"
#include "api/run_command.h"
#include "core/shared/shared_words.h"
#include "device/thumbnail_source.h"
#include "net/mongoose.h"

namespace {

void askForReboot() {
    syslog(LOG_INFO, "Rebooting");
    if (access("/sbin/shutdown", X_OK) == 0) {
        runCommand("/sbin/shutdown -r now");
    } else {
        runCommand("/sbin/reboot");
    }
}

}  // namespace

// The command may hang, or take the network away at once.
void rebootUnit(const ApiRequest &request) {
    replyEmpty(request.connection);
    api_words.after_reply = askForReboot;
}

void restartProcess(const ApiRequest &request) {
    replyEmpty(request.connection);
    syslog(LOG_INFO, "Restarting");
    stop_flag = 1;
}

void resetInput(const ApiRequest &request) {
    runCommand("/usr/local/bin/cmd *.dcmd DIT IP RESET");
    replyEmpty(request.connection);
}

void serveThumbnail(const ApiRequest &request) {
    ThumbnailSource &source = *api_words.thumbnail_source;
    source.fetch();
    mg_printf(request.connection,
              "HTTP/1.0 200 OK\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n"
              "Expires: Thu, 01 Dec 1994 16:00:00 GMT\r\nContent-Type: image/%s\r\n"
              "Content-Length: %lu\r\n\r\n",
              source.imageType(), static_cast<unsigned long>(source.imageSize()));
    mg_send(request.connection, source.image(), source.imageSize());
    mg_send(request.connection, "\r\n", 2);
    request.connection->is_draining = 1;
}
