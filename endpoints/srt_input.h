// The decoder's way in: one SRT connection, read message by message.
//
// A caller is connected once the constructor returns. A listener accepts inside read(),
// one step a call, so that the pump sees its stop and change flags between the steps;
// that is why read() so often answers kNothingDone. A receive gives up after one second for the
// same reason: a peer may be alive and silent.
#pragma once

#include "config/stream_uri.h"
#include "endpoints/proxy_srt.h"
#include "endpoints/srt_link.h"

// Threads: constructor, read() and close() on the pump's; the rest as in proxy_srt_t.
class srt_input : public proxy_srt_t {
public:
    // Opens the socket and, for a caller, connects. Throws as proxy_srt_t tells.
    explicit srt_input(const StreamUri &uri);

    void update_stats(StatsDocument *stats, std::uint32_t clear) override;
    void clear_stats(StatsDocument *stats) override;
    int status_line(std::string *line) override;

    // Receives one message. Returns its bytes, at most `length`; kEndOfStream when a
    // caller's stream has ended; kNothingDone when nothing came; kFailed when a listener's
    // receive failed.
    // Requires: `length` holds a whole message (kPayloadBytes and more).
    virtual int read(char *buffer, int length);

    // Closes both sockets early. Always 0.
    virtual int close();

    int stream_rate = 0;  // bits per second, 0: do not pace; fixed at construction

private:
    struct settings_t;

    void readOptions(const StreamUri &uri, settings_t &settings);
    int readCaller(char *buffer, int length);
    int readClient(char *buffer, int length);
    int waitForClient();

    srt_link_t link;
};
