#include "endpoints/srt_link.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>

namespace {

using steady_clock = std::chrono::steady_clock;

constexpr int kListenBacklog = 1;
constexpr std::chrono::seconds kPortRelease{6};  // libsrt 1.5.1 takes four to a little over five
constexpr int kMostPort = 65535;

struct AddressListDeleter {
    void operator()(addrinfo *list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDeleter>;

AddressList resolve(const StreamUri &uri) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *list = nullptr;
    const std::string service = std::to_string(uri.port);
    const int error = getaddrinfo(uri.host.c_str(), service.c_str(), &hints, &list);
    if (error != 0) {
        fprintf(stderr, "getaddrinfo: %s\n", gai_strerror(error));
        throw 1;
    }
    return AddressList(list);
}

// libsrt asks this about each caller of a listener that has a stream id; -1 refuses.
int streamid_check(void *opaque, SRTSOCKET, int, const sockaddr *, const char *peer_streamid) {
    if (opaque == nullptr) {
        return -1;
    }
    return strcmp(static_cast<const char *>(opaque), peer_streamid) == 0 ? 0 : -1;
}

// A port that this process has listened on, until libsrt lets go of it, which it does some
// seconds after the close.
struct let_go_t {
    int port;  // 0: none
    steady_clock::time_point free_at_latest;
};

// The last ones: more are not closed within those seconds. Pump's thread only.
std::array<let_go_t, 8> ports_let_go;
std::size_t oldest_let_go = 0;

bool isNotFreeYet(int port) {
    return std::any_of(ports_let_go.begin(), ports_let_go.end(), [port](const let_go_t &one) {
        return one.port == port && steady_clock::now() < one.free_at_latest;
    });
}

[[noreturn]] void failWith(const char *step) {
    fprintf(stderr, "%s: %s\n", step, srt_getlasterror_str());
    throw 1;
}

}  // namespace

srt_link_t::~srt_link_t() {
    closeSockets();
}

void srt_link_t::requireOpenable(const StreamUri &uri) {
    if (uri.port <= 0 || uri.port > kMostPort || !uri.enable) {
        throw 1;
    }
}

void srt_link_t::readOption(const std::string &key, const std::string &value) {
    if (key == "streamid") {
        streamid = value;
    } else if (key == "mode" && value == "caller") {
        mode = kModeCaller;
    } else if (key == "mode" && value == "listener") {
        mode = kModeListener;
    }
}

void srt_link_t::requireMode() const {
    if (mode == kModeNotSet) {
        fprintf(stderr, "srt mode not set\n");
        throw 1;
    }
}

void srt_link_t::createSocket() {
    sock = srt_create_socket();
    if (sock == SRT_INVALID_SOCK) {
        failWith("srt_socket");
    }
    if (mode == kModeListener) {
        setOption(SRTO_TRANSTYPE, SRTT_LIVE);
    }
}

void srt_link_t::setOption(SRT_SOCKOPT option, int value) {
    srt_setsockopt(sock, 0, option, &value, sizeof value);
}

void srt_link_t::setOption(SRT_SOCKOPT option, const std::string &value) {
    srt_setsockopt(sock, 0, option, value.data(), static_cast<int>(value.size()));
}

void srt_link_t::call(const StreamUri &uri, const char *announcement) {
    if (!streamid.empty()) {
        setOption(SRTO_STREAMID, streamid);
    }
    const AddressList addresses = resolve(uri);
    if (announcement != nullptr) {
        puts(announcement);
    }
    if (srt_connect(sock, addresses->ai_addr, static_cast<int>(addresses->ai_addrlen)) ==
        SRT_ERROR) {
        failWith("srt_connect");
    }
    setPeer(uri.host, std::to_string(uri.port));
}

void srt_link_t::listen(const StreamUri &uri, bool sending) {
    puts("srt bind address");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(uri.port));
    if (inet_pton(AF_INET, uri.host.c_str(), &address.sin_addr) != 1) {
        throw 1;
    }
    puts("srt setsockflag");
    const int no = 0;
    const int one = 1;
    srt_setsockflag(sock, SRTO_RCVSYN, &no, sizeof no);
    srt_setsockflag(sock, SRTO_REUSEADDR, &one, sizeof one);
    if (sending) {
        srt_setsockflag(sock, SRTO_SENDER, &one, sizeof one);
    }
    if (!streamid.empty()) {
        srt_listen_callback(sock, streamid_check, streamid.data());
    }
    puts("srt bind");
    if (srt_bind(sock, reinterpret_cast<sockaddr *>(&address), sizeof address) == SRT_ERROR) {
        if (srt_getlasterror(nullptr) == SRT_EBINDCONFLICT && isNotFreeYet(uri.port)) {
            throw kPortNotFreeYet;
        }
        failWith("srt_bind");
    }
    listening_port = uri.port;
    puts("srt listen");
    if (srt_listen(sock, kListenBacklog) == SRT_ERROR) {
        failWith("srt_listen");
    }
    puts("srt listening");
}

accept_result_t srt_link_t::acceptClient() {
    const SRT_SOCKSTATUS status = srt_getsockstate(sock);
    if (status != SRTS_LISTENING) {
        printf("status %d\n", status);
        return accept_result_t::failed;
    }
    sockaddr_storage address{};
    int address_bytes = sizeof address;
    auto *peer_address = reinterpret_cast<sockaddr *>(&address);
    client_sock = srt_accept(sock, peer_address, &address_bytes);
    if (client_sock == SRT_INVALID_SOCK) {
        const bool nobody = srt_getlasterror(nullptr) == SRT_EASYNCRCV;
        return nobody ? accept_result_t::nobody : accept_result_t::failed;
    }
    char host[NI_MAXHOST];
    char service[NI_MAXSERV];
    if (getnameinfo(peer_address, static_cast<socklen_t>(address_bytes), host, sizeof host, service,
                    sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        srt_close(client_sock);
        client_sock = SRT_INVALID_SOCK;
        return accept_result_t::failed;
    }
    setPeer(host, service);
    printf("new connection: %s:%s\n", host, service);
    fflush(stdout);
    return accept_result_t::accepted;
}

bool srt_link_t::dropGoneClient() {
    const SRT_SOCKSTATUS status = srt_getsockstate(client_sock);
    if (status != SRTS_BROKEN && status != SRTS_CLOSED && status != SRTS_NONEXIST) {
        return false;
    }
    printf("source disconnected. status=%d\n", status);
    fflush(stdout);
    srt_close(client_sock);
    client_sock = SRT_INVALID_SOCK;
    return true;
}

bool srt_link_t::sample(SRT_TRACEBSTATS &record, std::uint32_t clear) const {
    record = {};
    const SRTSOCKET asked = mode == kModeCaller ? sock : client_sock;
    if (asked == SRT_INVALID_SOCK) {
        return false;
    }
    srt_bstats(asked, &record, static_cast<int>(clear));
    return true;
}

std::string srt_link_t::peer() const {
    const MutexLock lock(endpoint_mutex);
    return endpoint;
}

void srt_link_t::closeSockets() const {
    for (const SRTSOCKET open_sock : {client_sock.load(), sock.load()}) {
        if (open_sock != SRT_INVALID_SOCK) {
            srt_close(open_sock);
        }
    }
    if (listening_port != 0) {
        ports_let_go[oldest_let_go] = {listening_port, steady_clock::now() + kPortRelease};
        oldest_let_go = (oldest_let_go + 1) % ports_let_go.size();
    }
}

void srt_link_t::setPeer(const std::string &host, const std::string &service) {
    const MutexLock lock(endpoint_mutex);
    endpoint = host + ":" + service;
}

int optionNumber(const std::string &value) {
    return static_cast<int>(strtol(value.c_str(), nullptr, 10));
}
