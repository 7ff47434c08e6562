#include "config/config_store.h"

#include <cstdio>
#include <exception>
#include <new>

#include "config/config_file.h"
#include "config/json_text.h"

namespace {

constexpr std::size_t kSlots = 2;

constexpr const char *kDefaultDocument =
    R"({ "uris" : [{ "idx" : 0, "uri" : "srt://", "enable" : false },)"
    R"({ "idx" : 1, "uri" : "srt://", "enable" : false }], "foo" : "bar"})";

// An element that names no slot, or not in the types that it must have, is passed over.
bool isMergeable(const Json::Value &element) {
    return element.isObject() && element.isMember("idx") && element.isMember("uri") &&
           element["idx"].isInt() && element["uri"].isString();
}

// What `enable` says, by jsoncpp's conversion; absent means true. False if it has none.
bool readEnable(const Json::Value &element, bool &enable) {
    try {
        enable = element.get("enable", true).asBool();
        return true;
    } catch (const Json::Exception &) {
        return false;
    }
}

}  // namespace

ConfigStore::ConfigStore(std::string file_path) : uris(kSlots), path(std::move(file_path)) {}

void ConfigStore::reload() {
    const MutexLock lock(mutex);
    try {
        mergeDocument(readConfigFile(path).value_or(kDefaultDocument));
    } catch (const std::exception &) {  // jsoncpp has a type of its own for that
        puts("No memory for the settings");
    }
}

int ConfigStore::getUri(std::size_t slot, StreamUri &out) {
    const MutexLock lock(mutex);
    if (slot >= uris.size()) {
        return 1;
    }
    out = uris[slot];
    return 0;
}

std::string ConfigStore::urisJson() {
    Json::Value list(Json::arrayValue);
    {
        const MutexLock lock(mutex);
        for (std::size_t slot = 0; slot < uris.size(); ++slot) {
            Json::Value entry;
            entry["idx"] = static_cast<int>(slot);
            entry["uri"] = renderStreamUri(uris[slot]);
            entry["enable"] = uris[slot].enable;
            list.append(std::move(entry));
        }
    }
    Json::Value document;
    document["uris"] = std::move(list);
    return compactJson(document);
}

int ConfigStore::applyDocument(const std::string &text) {
    const MutexLock lock(mutex);
    try {
        if (mergeDocument(text) == 0 && !writeConfigFile(path, text)) {
            printf("Failed to save cfg: %s\n", path.c_str());
        }
    } catch (const std::exception &) {
        puts("No memory for the settings");
    }
    return 0;
}

int ConfigStore::mergeDocument(const std::string &text) {
    Json::Value root;
    if (!parseJson(text, root) || !root.isObject()) {
        return 1;
    }
    const Json::Value &elements = root["uris"];
    for (Json::ArrayIndex i = 0; elements.isArray() && i < elements.size(); ++i) {
        if (mergeElement(elements[i]) != 0) {
            return 1;
        }
    }
    if (root["foo"].isString()) {
        foo = root["foo"].asString();
    }
    return 0;
}

// `enable` takes effect even when the address beside it turns out to be bad: switching
// a stream off must not hang on a typing mistake.
int ConfigStore::mergeElement(const Json::Value &element) {
    bool enable = true;
    if (!isMergeable(element) || !readEnable(element, enable)) {
        return 0;
    }
    const Json::Int slot = element["idx"].asInt();
    if (slot < 0 || static_cast<std::size_t>(slot) >= uris.size()) {
        return 0;
    }
    StreamUri &entry = uris[static_cast<std::size_t>(slot)];
    entry.enable = enable;
    StreamUri parsed;
    if (parseStreamUri(element["uri"].asString(), parsed) != 0) {
        puts("parse fail");
        return 1;
    }
    parsed.enable = enable;
    entry = std::move(parsed);
    return 0;
}
