#include "endpoints/srt_output.h"

#include <algorithm>
#include <cstdio>

#include "endpoints/payload.h"
#include "endpoints/results.h"
#include "endpoints/srt_stats.h"

namespace {

constexpr int kSendTimeoutMs = 1000;

// A send waits for room, but never so long that a stop or new settings hang on it.
void limitSend(SRTSOCKET sock) {
    srt_setsockflag(sock, SRTO_SNDTIMEO, &kSendTimeoutMs, sizeof kSendTimeoutMs);
}

}  // namespace

srt_output::srt_output(const StreamUri &uri) {
    int latency_ms = -1;         // negative: libsrt's default
    int flow_packets = -1;       // not above 0: libsrt's default
    int send_buffer_bytes = -1;  // not above 0: libsrt's default
    srt_link_t::requireOpenable(uri);
    for (const auto &[key, value] : uri.options) {
        if (key == "latency") {
            latency_ms = optionNumber(value);
            printf("latency %d\n", latency_ms);
        } else if (key == "sndbuf") {
            send_buffer_bytes = optionNumber(value);
        } else if (key == "fc") {
            flow_packets = optionNumber(value);
        } else {
            link.readOption(key, value);
        }
    }
    link.requireMode();
    fprintf(stderr, "srt mode %d\n", link.mode);
    link.createSocket();
    if (latency_ms >= 0) {
        link.setOption(SRTO_LATENCY, latency_ms);
    }
    if (flow_packets > 0) {
        link.setOption(SRTO_FC, flow_packets);
    }
    if (send_buffer_bytes > 0) {
        link.setOption(SRTO_SNDBUF, send_buffer_bytes);
    }
    if (link.mode == kModeCaller) {
        limitSend(link.sock);
        link.call(uri, nullptr);
    } else {
        link.listen(uri, true);
    }
}

int srt_output::write(const char *buffer, int length) {
    if (link.mode == kModeCaller) {
        return sendAll(link.sock, buffer, length);
    }
    if (link.client_sock == SRT_INVALID_SOCK) {
        return acceptStep();
    }
    return link.dropGoneClient() ? kNothingDone : sendAll(link.client_sock, buffer, length);
}

int srt_output::acceptStep() {
    switch (link.acceptClient()) {
    case accept_result_t::accepted:
        limitSend(link.client_sock);
        break;
    case accept_result_t::nobody:
        puts("No client, waiting");
        break;
    case accept_result_t::failed:
        break;
    }
    return kNothingDone;
}

int srt_output::sendAll(SRTSOCKET peer, const char *buffer, int length) {
    for (int sent = 0; sent < length; sent += kPayloadBytes) {
        if (srt_send(peer, buffer + sent, std::min(kPayloadBytes, length - sent)) == SRT_ERROR) {
            if (srt_getlasterror(nullptr) == SRT_ETIMEOUT) {
                return sent > 0 ? sent : kNothingTaken;
            }
            fprintf(stderr, "srt_sendmsg: %s\n", srt_getlasterror_str());
            return kEndOfStream;
        }
    }
    return length;
}

void srt_output::update_stats(StatsDocument *stats, std::uint32_t clear) {
    updateStats(*stats, link, clear, writeOutputStats);
}

void srt_output::clear_stats(StatsDocument *stats) {
    clearStats(*stats, writeOutputStats);
}

int srt_output::status_line(std::string *line) {
    return statusLine(*line, link, outputStatusLine);
}
