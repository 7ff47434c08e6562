// The API's replies. All are 200, failures being told in the body, but for the few that say
// otherwise.
#pragma once

#include <json/value.h>

struct mg_connection;

// The header block of every JSON reply.
inline constexpr const char *kJsonHeaders =
    "Content-Type: application/json\r\nCache-Control: no-cache\r\n";

void replyJson(mg_connection *connection, const Json::Value &document);

// "{}"
void replyEmpty(mg_connection *connection);

// "{}" with status 400: the request cannot be used.
void replyUnusable(mg_connection *connection);

// {"status":true,"message":"Success"} or {"status":false,"message":"Failed"}
void replyStatus(mg_connection *connection, bool success);
void replyFailed(mg_connection *connection);

// {"updates":[...]}, `names` being an array.
void replyUpdates(mg_connection *connection, const Json::Value &names);
void replyNoUpdates(mg_connection *connection);

// The text "Error" with status 500.
void replyError(mg_connection *connection);
