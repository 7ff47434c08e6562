// The encoder's way out: one SRT connection that sends what the pump hands it, cut into
// messages of kPayloadBytes, straight out of the pump's buffer.
//
// A caller is connected once the constructor returns. A listener accepts inside write(),
// one step a call; the buffer of a call that found no client or has just taken one is
// not sent. There is no encryption and no pacing on this side. A send gives up after one
// second: a peer may be alive and take nothing.
#pragma once

#include "config/stream_uri.h"
#include "endpoints/proxy_srt.h"
#include "endpoints/srt_link.h"

// Threads: constructor and write() on the pump's; the rest as in proxy_srt_t.
class srt_output : public proxy_srt_t {
public:
    // Opens the socket and, for a caller, connects. Throws as proxy_srt_t tells.
    explicit srt_output(const StreamUri &uri);

    void update_stats(StatsDocument *stats, std::uint32_t clear) override;
    void clear_stats(StatsDocument *stats) override;
    int status_line(std::string *line) override;

    // Sends all of it, in whole payloads and at most one short one, and returns
    // `length`; fewer whole payloads, or kNothingTaken, where libsrt's send buffer stays
    // full for a second: the rest is the caller's to send again. kEndOfStream if a send
    // failed, which drops the rest; kNothingDone without a client.
    int write(const char *buffer, int length);

private:
    int acceptStep();
    static int sendAll(SRTSOCKET peer, const char *buffer, int length);

    srt_link_t link;
};
