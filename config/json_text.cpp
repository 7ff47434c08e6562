#include "config/json_text.h"

#include <exception>

#include <json/reader.h>
#include <json/writer.h>

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

bool parseJson(const std::string &text, Json::Value &root) {
    try {
        Json::Reader reader;
        // Collecting comments takes time that grows with the square of their number.
        return reader.parse(text, root, false);
    } catch (const std::exception &) {
        return false;
    }
}

std::string compactJson(const Json::Value &value) {
    Json::StreamWriterBuilder compact;
    compact["commentStyle"] = "None";
    compact["indentation"] = "";
    return Json::writeString(compact, value);
}
