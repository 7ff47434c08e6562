// The least code that does the daemon's job with libsrt: what the daemon is measured
// against. It has no settings file, no failover, no statistics and no way to stop.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <srt/srt.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "sim/loopback.h"

namespace {

constexpr std::uint16_t kUnitPort = 9261;
constexpr int kMessageBytes = 1316;
constexpr std::size_t kReadBytes = std::size_t{1000} * kMessageBytes;

struct Settings {
    bool send = false;      // from the device to SRT, else from SRT to the unit
    bool caller = false;    // else listener
    bool spin = false;      // receive without waiting, ask again at once
    bool realtime = false;  // this thread under SCHED_RR
    int port = 0;
    int latency_ms = 0;
    const char *device = "";
};

template <typename Result>
Result require(Result result, const char *step) {
    if (result == -1) {
        fprintf(stderr, "bare_loop: %s: %s\n", step, srt_getlasterror_str());
        exit(1);
    }
    return result;
}

SRTSOCKET accept(SRTSOCKET listener) {
    for (;;) {
        const SRTSOCKET client = srt_accept(listener, nullptr, nullptr);
        if (client != SRT_INVALID_SOCK) {
            return client;
        }
        usleep(1000);  // only a spinning listener comes here
    }
}

SRTSOCKET connectPeer(const Settings &settings) {
    const SRTSOCKET sock = require(srt_create_socket(), "create socket");
    const sockaddr_in address = sim::loopback(static_cast<std::uint16_t>(settings.port));
    const auto *name = reinterpret_cast<const sockaddr *>(&address);
    srt_setsockflag(sock, SRTO_LATENCY, &settings.latency_ms, sizeof settings.latency_ms);
    if (settings.caller) {
        require(srt_connect(sock, name, sizeof address), "connect");
        return sock;
    }
    const int wait = settings.spin ? 0 : 1;
    srt_setsockflag(sock, SRTO_RCVSYN, &wait, sizeof wait);
    require(srt_bind(sock, name, sizeof address), "bind");
    require(srt_listen(sock, 1), "listen");
    return accept(sock);
}

void receive(SRTSOCKET peer) {
    const int unit = require(socket(AF_INET, SOCK_DGRAM, 0), "socket");
    const sockaddr_in address = sim::loopback(kUnitPort);
    std::vector<char> buffer(kReadBytes);
    for (;;) {
        const int bytes = srt_recvmsg(peer, buffer.data(), static_cast<int>(buffer.size()));
        if (bytes > 0) {
            sendto(unit, buffer.data(), static_cast<std::size_t>(bytes), 0,
                   reinterpret_cast<const sockaddr *>(&address), sizeof address);
        } else if (srt_getlasterror(nullptr) != SRT_EASYNCRCV) {
            return;
        }
    }
}

void send(SRTSOCKET peer, const char *device) {
    const int fd = require(open(device, O_RDONLY), "open device");
    std::vector<char> buffer(kReadBytes);
    for (;;) {
        const auto bytes = static_cast<int>(read(fd, buffer.data(), buffer.size()));
        if (bytes < 1) {
            return;
        }
        for (int sent = 0; sent < bytes; sent += kMessageBytes) {
            const int length = std::min(kMessageBytes, bytes - sent);
            if (srt_send(peer, buffer.data() + sent, length) == SRT_ERROR) {
                return;
            }
        }
    }
}

void requestRealTime() {
    sched_param parameters{};
    parameters.sched_priority = sched_get_priority_max(SCHED_RR);
    if (pthread_setschedparam(pthread_self(), SCHED_RR | SCHED_RESET_ON_FORK, &parameters) != 0) {
        fprintf(stderr, "bare_loop: no right to SCHED_RR\n");
    }
}

bool readSettings(int count, char **words, Settings &settings) {
    if (count < 5) {
        return false;
    }
    settings.send = strcmp(words[1], "send") == 0;
    settings.caller = strcmp(words[2], "caller") == 0;
    settings.port = atoi(words[3]);
    settings.latency_ms = atoi(words[4]);
    for (int i = 5; i < count; ++i) {
        const std::string word = words[i];
        if (word == "--spin") {
            settings.spin = true;
        } else if (word == "--realtime") {
            settings.realtime = true;
        } else {
            settings.device = words[i];
        }
    }
    return true;
}

}  // namespace

int main(int count, char **words) {
    Settings settings;
    if (!readSettings(count, words, settings)) {
        fprintf(stderr, "usage: bare_loop receive|send caller|listener PORT LATENCY_MS"
                        " [DEVICE] [--spin] [--realtime]\n");
        return 2;
    }
    srt_startup();
    srt_setloglevel(LOG_CRIT);  // as the daemon does
    if (settings.realtime) {
        requestRealTime();
    }
    const SRTSOCKET peer = connectPeer(settings);
    if (settings.send) {
        send(peer, settings.device);
    } else {
        receive(peer);
    }
    return 0;
}
