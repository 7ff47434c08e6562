// A bare libsrt socket inside its owner's process: a far end whose every step the
// owner decides. Ports are on the loopback.
#pragma once

#include <srt/srt.h>

#include <cstdint>
#include <string>
#include <utility>

#include "sim/loopback.h"

namespace sim {

struct SrtLibrary {
    SrtLibrary() {
        srt_startup();
        srt_setloglevel(LOG_CRIT);
    }
    ~SrtLibrary() { srt_cleanup(); }
};

class RawSrt {
public:
    explicit RawSrt(SRTSOCKET taken = srt_create_socket()) : sock(taken) {}
    RawSrt(RawSrt &&other) noexcept : sock(std::exchange(other.sock, SRT_INVALID_SOCK)) {}
    RawSrt &operator=(RawSrt &&) = delete;
    ~RawSrt() { close(); }

    template <typename Value>
    void set(SRT_SOCKOPT option, const Value &value) {
        srt_setsockopt(sock, 0, option, &value, sizeof value);
    }
    void set(SRT_SOCKOPT option, const std::string &value) {
        srt_setsockopt(sock, 0, option, value.data(), static_cast<int>(value.size()));
    }
    // A number or flag; -1 where the socket does not tell it.
    int get(SRT_SOCKOPT option) const {
        int value = 0;  // a flag fills its first byte only
        int size = sizeof value;
        return srt_getsockopt(sock, 0, option, &value, &size) == 0 ? value : -1;
    }
    // The stream id that a caller has presented.
    std::string streamId() const {
        char text[513];
        int size = sizeof text;
        srt_getsockopt(sock, 0, SRTO_STREAMID, text, &size);
        return std::string(text, static_cast<std::size_t>(size));
    }
    bool listen(std::uint16_t port) {
        const sockaddr_in address = loopback(port);
        return srt_bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
               srt_listen(sock, 4) == 0;
    }
    RawSrt accept() { return RawSrt(srt_accept(sock, nullptr, nullptr)); }
    bool connect(std::uint16_t port) {
        const sockaddr_in address = loopback(port);
        return srt_connect(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    bool send(const std::string &message) {
        return srt_send(sock, message.data(), static_cast<int>(message.size())) ==
               static_cast<int>(message.size());
    }
    // The next message; empty if there is none and the socket says so.
    std::string receive() {
        std::string message(1500, '\0');
        const int size = srt_recvmsg(sock, message.data(), static_cast<int>(message.size()));
        message.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return message;
    }
    void close() {
        if (sock != SRT_INVALID_SOCK) {
            srt_close(std::exchange(sock, SRT_INVALID_SOCK));
        }
    }
    SRTSOCKET id() const { return sock; }

private:
    SRTSOCKET sock;
};

}  // namespace sim
