#include "api/json_message.h"

#include "config/json_text.h"

Json::Value memberOf(const http::Request &request, const char *key) {
    Json::Value root;
    if (!parseJson(std::string(request.body), root) || !root.isObject()) {
        return {};
    }
    return root[key];
}

http::Reply replyText(const std::string &json, int status) {
    return http::makeReply(status, "Content-Type: application/json\r\nCache-Control: no-cache\r\n",
                           json + "\n");
}

http::Reply replyJson(const Json::Value &document) {
    return replyText(compactJson(document));
}

http::Reply replyEmpty() {
    return replyText("{}");
}

http::Reply replyUnusable() {
    return replyText("{}", 400);
}

http::Reply replyStatus(bool success) {
    return replyText(success ? R"({"status":true,"message":"Success"})"
                             : R"({"status":false,"message":"Failed"})");
}

http::Reply replyUpdates(const Json::Value &names) {
    Json::Value document;
    document["updates"] = names;
    return replyJson(document);
}

http::Reply replyNoUpdates() {
    return replyUpdates(Json::Value(Json::arrayValue));
}

http::Reply replyError() {
    return http::makeReply(500, "", "Error\n");
}
