#include "endpoints/srt_input.h"

#include <cstdio>
#include <sstream>

#include <unistd.h>

#include "core/shared/system_log.h"
#include "endpoints/results.h"
#include "endpoints/srt_stats.h"

namespace {

constexpr int kReceiveTimeoutMs = 1000;
constexpr std::size_t kLeastPassphrase = 10;
constexpr std::size_t kMostPassphrase = 80;

int readPbkeylen(const std::string &value) {
    int pbkeylen = 0;
    std::istringstream(value) >> pbkeylen;
    if (pbkeylen != 0 && pbkeylen != 16 && pbkeylen != 24 && pbkeylen != 32) {
        systemLog(LOG_ERR, "Invalid pbkeylen %d", pbkeylen);
        throw 1;
    }
    printf("pbkeylen = %d\n", pbkeylen);
    return pbkeylen;
}

std::string readPassphrase(const std::string &value) {
    std::string passphrase = percentDecode(value);
    if (passphrase.size() < kLeastPassphrase || passphrase.size() > kMostPassphrase) {
        systemLog(LOG_ERR, "Invalid passphrase length: %d, should be 10-80",
                  static_cast<int>(passphrase.size()));
        throw 1;
    }
    return passphrase;
}

// A receive waits for data, but never so long that a stop or new settings hang on it.
void makeReceiveWait(SRTSOCKET sock) {
    const int yes = 1;
    srt_setsockflag(sock, SRTO_RCVSYN, &yes, sizeof yes);
    srt_setsockflag(sock, SRTO_RCVTIMEO, &kReceiveTimeoutMs, sizeof kReceiveTimeoutMs);
}

bool nothingCame(int error) {
    return error == SRT_EASYNCRCV || error == SRT_ETIMEOUT;
}

bool isGone(SRTSOCKET sock) {
    const SRT_SOCKSTATUS status = srt_getsockstate(sock);
    return status == SRTS_BROKEN || status == SRTS_CLOSED || status == SRTS_NONEXIST;
}

}  // namespace

struct srt_input::settings_t {
    int latency_ms = -1;  // negative: libsrt's default
    int pbkeylen = 0;     // bytes, 0: libsrt's default
    std::string passphrase;
    int flow_packets = -1;          // not above 0: libsrt's default
    int receive_buffer_bytes = -1;  // not above 0: libsrt's default
};

srt_input::srt_input(const StreamUri &uri) {
    srt_link_t::requireOpenable(uri);
    settings_t settings;
    readOptions(uri, settings);
    link.requireMode();
    link.createSocket();
    if (settings.latency_ms >= 0) {
        link.setOption(SRTO_LATENCY, settings.latency_ms);
    }
    if (settings.pbkeylen != 0) {
        link.setOption(SRTO_PBKEYLEN, settings.pbkeylen);
    }
    if (!settings.passphrase.empty()) {
        link.setOption(SRTO_PASSPHRASE, settings.passphrase);
    }
    if (settings.flow_packets > 0) {
        link.setOption(SRTO_FC, settings.flow_packets);
    }
    if (settings.receive_buffer_bytes > 0) {
        link.setOption(SRTO_RCVBUF, settings.receive_buffer_bytes);
    }
    if (link.mode == kModeCaller) {
        makeReceiveWait(link.sock);
        link.call(uri, "srt connect");
    } else {
        link.listen(uri, false);
    }
}

// In key order, which decides which of two bad values complains.
void srt_input::readOptions(const StreamUri &uri, settings_t &settings) {
    for (const auto &[key, value] : uri.options) {
        if (key == "latency") {
            settings.latency_ms = optionNumber(value);
        } else if (key == "pbkeylen") {
            settings.pbkeylen = readPbkeylen(value);
        } else if (key == "passphrase") {
            settings.passphrase = readPassphrase(value);
        } else if (key == "streamrate") {
            stream_rate = optionNumber(value);
        } else if (key == "rcvbuf") {
            settings.receive_buffer_bytes = optionNumber(value);
        } else if (key == "fc") {
            settings.flow_packets = optionNumber(value);
        } else {
            link.readOption(key, value);
        }
    }
}

int srt_input::read(char *buffer, int length) {
    if (link.mode == kModeCaller) {
        return readCaller(buffer, length);
    }
    return link.client_sock == SRT_INVALID_SOCK ? waitForClient() : readClient(buffer, length);
}

int srt_input::close() {
    link.closeSockets();
    return 0;
}

int srt_input::readCaller(char *buffer, int length) {
    const int received = srt_recvmsg(link.sock, buffer, length);
    if (received != SRT_ERROR) {
        return received;
    }
    if (nothingCame(srt_getlasterror(nullptr))) {
        return kNothingDone;
    }
    fprintf(stderr, "%s\n", srt_getlasterror_str());
    return kEndOfStream;
}

// A client that goes while the receive waits is told by the next call's test.
int srt_input::readClient(char *buffer, int length) {
    if (link.dropGoneClient()) {
        return kNothingDone;
    }
    const int received = srt_recvmsg(link.client_sock, buffer, length);
    if (received != SRT_ERROR) {
        return received;
    }
    const bool wait = nothingCame(srt_getlasterror(nullptr)) || isGone(link.client_sock);
    return wait ? kNothingDone : kFailed;
}

int srt_input::waitForClient() {
    switch (link.acceptClient()) {
    case accept_result_t::accepted:
        makeReceiveWait(link.client_sock);
        break;
    case accept_result_t::nobody:
        sleep(1);
        puts("No client, waiting");
        break;
    case accept_result_t::failed:
        break;
    }
    return kNothingDone;
}

void srt_input::update_stats(StatsDocument *stats, std::uint32_t clear) {
    updateStats(*stats, link, clear, writeInputStats);
}

void srt_input::clear_stats(StatsDocument *stats) {
    clearStats(*stats, writeInputStats);
}

int srt_input::status_line(std::string *line) {
    return statusLine(*line, link, inputStatusLine);
}
