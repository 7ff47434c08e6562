#include "api/capabilities.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "api/api_handler.h"
#include "api/api_request.h"
#include "api/json_reply.h"

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

void serveCapabilities(const ApiRequest &request) {
    Json::Value document;
    document["product"] = product();
    document["serial"] = serialNumber(kernelCommandLine());
    document["srt_version"] = kSrtVersion;
    document["tidewell_version"] = kVersion;
    document["tidewell_version_value"] = kVersionValue;
    document["platform"] = kPlatform;
    document["packed_fs"] = request.handler().parts.packed;
    document["addresses"] = addresses();
    replyJson(request.connection, document);
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
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock == -1 || ioctl(sock, SIOCGIFADDR, &query) == -1) {
        query = {};
    }
    if (sock != -1) {
        close(sock);
    }
    sockaddr_in address{};
    memcpy(&address, &query.ifr_addr, sizeof address);
    return inet_ntoa(address.sin_addr);
}
