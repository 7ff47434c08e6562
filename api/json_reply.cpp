#include "api/json_reply.h"

#include "config/json_text.h"
#include "net/mongoose.h"

void replyJson(mg_connection *connection, const Json::Value &document) {
    mg_http_reply(connection, 200, kJsonHeaders, "%s\n", compactJson(document).c_str());
}

void replyEmpty(mg_connection *connection) {
    mg_http_reply(connection, 200, kJsonHeaders, "{}\n");
}

void replyUnusable(mg_connection *connection) {
    mg_http_reply(connection, 400, kJsonHeaders, "{}\n");
}

void replyStatus(mg_connection *connection, bool success) {
    mg_http_reply(connection, 200, kJsonHeaders, "{%m:%s,%m:%m}\n", MG_ESC("status"),
                  success ? "true" : "false", MG_ESC("message"),
                  MG_ESC(success ? "Success" : "Failed"));
}

void replyFailed(mg_connection *connection) {
    replyStatus(connection, false);
}

void replyUpdates(mg_connection *connection, const Json::Value &names) {
    Json::Value document;
    document["updates"] = names;
    replyJson(connection, document);
}

void replyNoUpdates(mg_connection *connection) {
    replyUpdates(connection, Json::Value(Json::arrayValue));
}

void replyError(mg_connection *connection) {
    mg_http_reply(connection, 500, nullptr, "%s\n", "Error");
}
