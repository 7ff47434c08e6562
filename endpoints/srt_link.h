// What the two SRT endpoints have in common: one libsrt socket that calls or listens,
// the one client of a listener, and the peer's name. Data does not pass through here.
//
// Opening announces its steps on stdout and its failures on stderr, then throws the
// int 1, or kPortNotFreeYet; whatever was opened is closed again by the destructor.
#pragma once

#include <atomic>
#include <string>

#include <srt/srt.h>

#include "config/stream_uri.h"
#include "core/shared/mutex.h"

enum srt_mode_t : int { kModeNotSet = 0, kModeCaller = 1, kModeListener = 2 };

enum class accept_result_t { accepted, nobody, failed };

// Threads: the pump's, but for peer() and sample(), which the stats thread calls too.
// Owner:   an srt_input or srt_output.
class srt_link_t {
public:
    srt_link_t() = default;
    ~srt_link_t();
    srt_link_t(const srt_link_t &) = delete;
    srt_link_t &operator=(const srt_link_t &) = delete;

    // Refuses an address that may not be opened: port 0 or past 65535, or disabled.
    static void requireOpenable(const StreamUri &uri);

    // Takes `mode` and `streamid` from a query key; leaves any other key to the endpoint.
    void readOption(const std::string &key, const std::string &value);
    void requireMode() const;

    // Makes `sock`. A listener's socket is put into live mode at once, before any
    // other option: setting the transport type later would reset the latency.
    void createSocket();
    void setOption(SRT_SOCKOPT option, int value);
    void setOption(SRT_SOCKOPT option, const std::string &value);

    // Resolves the host and connects to its first address; blocks for as long as libsrt's
    // connect does. `announcement` is printed before connecting if it is not null.
    void call(const StreamUri &uri, const char *announcement);

    // Listens on a dotted IPv4 address. `sending` says which way the data will flow. Throws
    // kPortNotFreeYet where libsrt still holds the port for a listener that this process has
    // just closed: the same address can be had within seconds.
    void listen(const StreamUri &uri, bool sending);

    // One step of a listener that has no client. Like the listener's, a new client's socket
    // does not wait when it receives.
    accept_result_t acceptClient();

    // True if the client has gone; it is then closed and the listener waits again.
    bool dropGoneClient();

    // The libsrt sample of the peer, all zero if there is none. False without a peer.
    bool sample(SRT_TRACEBSTATS &record, std::uint32_t clear) const;

    // Host, colon, port; empty until a peer was there. Stays after a client has left.
    std::string peer() const EXCLUDES(endpoint_mutex);

    // Closes the client, then the socket, and leaves their numbers in place.
    void closeSockets() const;

    srt_mode_t mode = kModeNotSet;  // fixed at construction of the endpoint
    // atomic: the pump writes, the stats thread reads. libsrt sockets are handles: one
    // that has just been closed answers with an error and does no harm.
    std::atomic<SRTSOCKET> sock{SRT_INVALID_SOCK};         // the caller's or the listener's
    std::atomic<SRTSOCKET> client_sock{SRT_INVALID_SOCK};  // a listener's client
    std::string streamid;  // fixed at construction; libsrt keeps a pointer to a listener's

private:
    int listening_port = 0;  // 0: not bound; fixed at construction of the endpoint

    void setPeer(const std::string &host, const std::string &service) EXCLUDES(endpoint_mutex);

    mutable Mutex endpoint_mutex;
    std::string endpoint GUARDED_BY(endpoint_mutex);
};

// Thrown in place of the 1, without a message.
constexpr int kPortNotFreeYet = 2;

// The integer at the front of an option's text, 0 where there is none.
int optionNumber(const std::string &value);
