// JSON in requests and in the API's replies. All of these are 200, failures being told in the
// body, but for the few that say otherwise.
#pragma once

#include <string>

#include <json/value.h>

#include "http/reply.h"
#include "http/request.h"

// The member `key` of a request's body; null if that is no JSON object or has no such member.
Json::Value memberOf(const http::Request &request, const char *key);

// A JSON text with its headers; a line feed is put behind it.
http::Reply replyText(const std::string &json, int status = 200);
http::Reply replyJson(const Json::Value &document);

// "{}"
http::Reply replyEmpty();

// "{}" with status 400: the request cannot be used.
http::Reply replyUnusable();

// {"status":true,"message":"Success"} or {"status":false,"message":"Failed"}
http::Reply replyStatus(bool success);

// {"updates":[...]}, `names` being an array.
http::Reply replyUpdates(const Json::Value &names);
http::Reply replyNoUpdates();

// The text "Error" with status 500.
http::Reply replyError();
