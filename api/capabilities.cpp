#include "api/capabilities.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "api/api_context.h"
#include "api/api_handler.h"
#include "api/json_message.h"
#include "core/shared/descriptor.h"

namespace {

constexpr const char *kSrtVersion = "1.4.4";
constexpr const char *kVersion = "1.0.9";
constexpr int kVersionValue = 65544;
constexpr const char *kPlatform = "tamarind";
constexpr std::string_view kSerialKey = "serialnum=";

std::string product() {
    const char *value = getenv("PRODUCT");
    return value != nullptr ? value : "unknown";
}

std::string kernelCommandLine() {
    std::ifstream file("/proc/cmdline");
    std::string line;
    std::getline(file, line);
    return line;
}

Json::Value addresses() {
    Json::Value list(Json::arrayValue);
    list.append(Json::objectValue)["ETH0"] = interfaceAddress("eth0");
    list.append(Json::objectValue)["GBE"] = interfaceAddress("eth1");
    return list;
}

}  // namespace

http::Reply serveCapabilities(ApiContext &context, const http::Request &) {
    Json::Value document;
    document["product"] = product();
    document["serial"] = serialNumber(kernelCommandLine());
    document["srt_version"] = kSrtVersion;
    document["tidewell_version"] = kVersion;
    document["tidewell_version_value"] = kVersionValue;
    document["platform"] = kPlatform;
    document["packed_fs"] = context.api.parts.packed;
    document["addresses"] = addresses();
    return replyJson(document);
}

std::string serialNumber(const std::string &command_line) {
    const std::size_t key = command_line.find(kSerialKey);
    if (key == std::string::npos) {
        return "";
    }
    const std::size_t begin = key + kSerialKey.size();
    return command_line.substr(begin, command_line.find(' ', begin) - begin);
}

std::string interfaceAddress(const std::string &name) {
    ifreq query{};
    name.copy(query.ifr_name, IFNAMSIZ - 1);
    query.ifr_addr.sa_family = AF_INET;
    const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (ioctl(sock.number(), SIOCGIFADDR, &query) == -1) {
        query = {};
    }
    sockaddr_in address{};
    memcpy(&address, &query.ifr_addr, sizeof address);
    return inet_ntoa(address.sin_addr);
}
