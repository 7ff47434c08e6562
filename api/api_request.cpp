#include "api/api_request.h"

#include <stdexcept>

#include "config/json_text.h"
#include "net/mongoose.h"

ApiHandler &ApiRequest::handler() const {
    if (api == nullptr) {
        throw std::runtime_error("no API handler");
    }
    return *api;
}

std::string ApiRequest::body() const {
    return {message->body.buf, message->body.len};
}

Json::Value ApiRequest::member(const char *key) const {
    Json::Value root;
    if (!parseJson(body(), root) || !root.isObject()) {
        return {};
    }
    return root[key];
}
