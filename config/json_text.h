// The one way from JSON text to a Json::Value and back.
//
// jsoncpp's Reader is deprecated upstream and throws on deep nesting; both end here.
// It stops at the end of the first value: what follows that value is not looked at,
// which is what makes a settings file readable in the middle of being saved.
#pragma once

#include <string>

#include <json/value.h>

// Parses `text`, comments allowed, into `root`. False, whatever `root` then holds, if
// it is not JSON, nested deeper than the library reads, or too much for the memory.
[[nodiscard]] bool parseJson(const std::string &text, Json::Value &root);

// `value` on one line without blanks, keys in byte order.
std::string compactJson(const Json::Value &value);
