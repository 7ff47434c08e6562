#include "soak/settings.h"

#include <fstream>
#include <stdexcept>

#include <json/value.h>

#include "config/json_text.h"
#include "sim/daemon.h"

std::string Settings::text() const {
    return sim::configDocument(primary, backup);
}

std::string meaningOf(const std::string &text) {
    Json::Value document;
    return parseJson(text, document) ? document.toStyledString() : "no JSON";
}

std::string readText(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeText(const std::filesystem::path &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!(file << text).flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}
