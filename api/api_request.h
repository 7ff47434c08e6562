// One request as a route sees it.
#pragma once

#include <string>

#include <json/value.h>

class ApiHandler;
struct mg_connection;
struct mg_http_message;

// Valid until the route returns.
struct ApiRequest {
    mg_connection *connection;
    mg_http_message *message;
    ApiHandler *api;  // null where the listener was made without one

    // Throws std::runtime_error if there is none; the reply is then the route's own for it.
    ApiHandler &handler() const;

    std::string body() const;

    // The body's member `key`; null if the body is no JSON object or has no such member.
    Json::Value member(const char *key) const;
};
