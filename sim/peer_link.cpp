#include "sim/peer_link.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <string>

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr auto kLookInterval = 10ms;
constexpr auto kCallInterval = 100ms;
constexpr int kConnectLimitMs = 1000;
constexpr int kReceiveWaitMs = 20;
constexpr int kBacklog = 8;
constexpr std::size_t kLargestPayload = 1456;

template <typename Value>
void setOption(SRTSOCKET socket, SRT_SOCKOPT option, Value value) {
    srt_setsockflag(socket, option, &value, sizeof value);
}

void setText(SRTSOCKET socket, SRT_SOCKOPT option, const char *text) {
    if (*text != '\0') {
        srt_setsockflag(socket, option, text, static_cast<int>(std::strlen(text)));
    }
}

sockaddr_in addressOf(const PeerSettings &settings) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(settings.port);
    if (inet_pton(AF_INET, settings.host.get(), &address.sin_addr) != 1) {
        throw std::runtime_error(std::string("no IPv4 address: ") + settings.host.get());
    }
    return address;
}

int admitStreamId(void *wanted, SRTSOCKET, int, const sockaddr *, const char *presented) {
    return std::strcmp(static_cast<const char *>(wanted), presented) == 0 ? 0 : -1;
}

std::uint64_t countOf(std::int64_t value) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(value, 0));
}

}  // namespace

PeerLink::PeerLink(PeerState &shared) : state(shared), epoll(srt_epoll_create()) {
    srt_epoll_set(epoll, SRT_EPOLL_ENABLE_EMPTY);
    if (state.settings.mode == PeerMode::listener) {
        listen();
    }
    state.phase = PeerPhase::ready;
}

PeerLink::~PeerLink() {
    for (const SRTSOCKET connection : connections) {
        srt_close(connection);
    }
    if (listener != SRT_INVALID_SOCK) {
        srt_close(listener);
    }
    srt_epoll_release(epoll);
}

// Options for either end; a listener's clients inherit them.
SRTSOCKET PeerLink::openSocket() {
    const PeerSettings &settings = state.settings;
    const SRTSOCKET socket = srt_create_socket();
    setOption(socket, SRTO_TRANSTYPE, SRTT_LIVE);  // first: it sets the others back
    setOption(socket, SRTO_LATENCY, settings.latency_ms);
    setOption(socket, SRTO_PAYLOADSIZE, static_cast<int>(kLargestPayload));
    setOption(socket, SRTO_CONNTIMEO, kConnectLimitMs);
    if (settings.pbkeylen != 0) {
        setOption(socket, SRTO_PBKEYLEN, settings.pbkeylen);
    }
    setText(socket, SRTO_PASSPHRASE, settings.passphrase.get());
    return socket;
}

void PeerLink::listen() {
    const sockaddr_in address = addressOf(state.settings);
    const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
    listener = openSocket();
    setOption(listener, SRTO_RCVSYN, false);
    setOption(listener, SRTO_SNDSYN, false);
    if (*state.settings.stream_id.get() != '\0') {
        srt_listen_callback(listener, admitStreamId,
                            const_cast<char *>(state.settings.stream_id.get()));
    }
    if (srt_bind(listener, generic, sizeof address) == SRT_ERROR ||
        srt_listen(listener, kBacklog) == SRT_ERROR) {
        throw std::runtime_error(std::string("cannot listen: ") + srt_getlasterror_str());
    }
}

void PeerLink::maintain() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_look) {
        return;
    }
    next_look = now + kLookInterval;
    dropBroken();
    if (listener != SRT_INVALID_SOCK) {
        acceptClients();
    } else if (connections.empty() && now >= next_call) {
        connect();
        next_call = std::chrono::steady_clock::now() + kCallInterval;
    }
    updateCounters();
}

void PeerLink::acceptClients() {
    SRTSOCKET client = SRT_INVALID_SOCK;
    while ((client = srt_accept(listener, nullptr, nullptr)) != SRT_INVALID_SOCK) {
        add(client);
    }
}

void PeerLink::connect() {
    const sockaddr_in address = addressOf(state.settings);
    const SRTSOCKET caller = openSocket();
    setText(caller, SRTO_STREAMID, state.settings.stream_id.get());
    if (srt_connect(caller, reinterpret_cast<const sockaddr *>(&address), sizeof address) ==
        SRT_ERROR) {
        srt_close(caller);
        return;
    }
    setOption(caller, SRTO_RCVSYN, false);
    setOption(caller, SRTO_SNDSYN, false);
    add(caller);
}

void PeerLink::add(SRTSOCKET connection) {
    const int events = int{SRT_EPOLL_IN} | int{SRT_EPOLL_ERR};
    srt_epoll_add_usock(epoll, connection, &events);
    connections.push_back(connection);
    ++state.connections_made;
    state.connections = static_cast<std::uint32_t>(connections.size());
    state.phase = PeerPhase::connected;
}

void PeerLink::dropBroken() {
    const auto broken = [](SRTSOCKET connection) {
        if (srt_getsockstate(connection) == SRTS_CONNECTED) {
            return false;
        }
        srt_close(connection);
        return true;
    };
    if (std::erase_if(connections, broken) > 0) {
        state.connections = static_cast<std::uint32_t>(connections.size());
        state.phase = connections.empty() ? PeerPhase::ready : PeerPhase::connected;
    }
}

void PeerLink::updateCounters() {
    SRT_TRACEBSTATS sample{};
    if (connections.empty() || srt_bstats(connections.back(), &sample, 0) == SRT_ERROR) {
        return;
    }
    const bool sends = state.settings.role == PeerRole::sender;
    LinkCounters &link = state.link;
    link.packets = countOf(sends ? sample.pktSentTotal : sample.pktRecvTotal);
    link.lost = countOf(sends ? sample.pktSndLossTotal : sample.pktRcvLossTotal);
    link.retransmitted = countOf(sends ? sample.pktRetransTotal : sample.pktRcvRetrans);
    link.dropped = countOf(sends ? sample.pktSndDropTotal : sample.pktRcvDropTotal);
    link.rate_bps =
        static_cast<std::uint64_t>((sends ? sample.mbpsSendRate : sample.mbpsRecvRate) * 1e6);
    link.round_trip_ms = sample.msRTT;
}

void PeerLink::send(const std::uint8_t *message, std::size_t bytes) {
    for (const SRTSOCKET connection : connections) {
        srt_sendmsg(connection, reinterpret_cast<const char *>(message), static_cast<int>(bytes),
                    -1, 1);
    }
}

void PeerLink::receive(const std::function<void(const std::uint8_t *, std::size_t)> &take) {
    std::array<SRTSOCKET, 16> ready{};
    int count = static_cast<int>(ready.size());
    if (srt_epoll_wait(epoll, ready.data(), &count, nullptr, nullptr, kReceiveWaitMs, nullptr,
                       nullptr, nullptr, nullptr) <= 0) {
        return;
    }
    std::array<char, kLargestPayload> message{};
    for (const SRTSOCKET connection : connections) {
        int bytes = 0;
        while ((bytes = srt_recvmsg(connection, message.data(), message.size())) > 0) {
            take(reinterpret_cast<const std::uint8_t *>(message.data()),
                 static_cast<std::size_t>(bytes));
        }
    }
}

}  // namespace sim
