// The HTTP interface that the rest of the program is written against: the calls of Mongoose
// 7.15 that tidewell makes, under their own names. The library itself is packaged nowhere, so
// this folder supplies them on Boost.Asio and Boost.Beast; -DTIDEWELL_SYSTEM_MONGOOSE=ON takes
// an installed one instead, and nothing outside net/ may notice which one it is.
//
// Heads are read as loosely as there, and refused with a status (400, 413, 431, 503) where it
// hangs up: lines may end in LF, the first line's parts stand any number of blanks apart, its
// protocol may be missing or any text. A head has at most 100 fields, of which handlers see 30.
//
// What may surprise: everything happens inside mg_mgr_poll, on the caller's thread. A manager
// belongs to one thread; one manager may be polled inside a handler of another. What a handler
// sees through mg_str (URI, body) dies when the handler returns. No exception that a handler
// or a client causes leaves mg_mgr_poll: the connection is closed instead.
#pragma once

#ifdef TIDEWELL_SYSTEM_MONGOOSE
#include <mongoose.h>
#else

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <ctime>

namespace net {
class Loop;
}

extern "C" {

// A view of bytes: not zero-terminated.
struct mg_str {
    char *buf;
    size_t len;
};
#define mg_str(s) mg_str_s(s)
struct mg_str mg_str_s(const char *s);

// True if all of `str` matches `pattern`: `?` is any byte, `*` any run without `/`, `#` any
// run. Requires: `caps` is null.
bool mg_match(struct mg_str str, struct mg_str pattern, struct mg_str *caps);

enum {
    MG_EV_ERROR = 0,      // char *: what went wrong; MG_EV_CLOSE follows
    MG_EV_OPEN = 1,       // client: const char *url; else null
    MG_EV_POLL = 2,       // uint64_t *: mg_millis(); once per connection and mg_mgr_poll
    MG_EV_CONNECT = 4,    // null
    MG_EV_CLOSE = 9,      // null; the connection is gone when the handler returns
    MG_EV_HTTP_MSG = 11,  // struct mg_http_message *
};

enum { MG_LL_NONE, MG_LL_ERROR, MG_LL_INFO, MG_LL_DEBUG, MG_LL_VERBOSE };
extern int mg_log_level;  // lines above this level are not printed; default MG_LL_INFO

enum { MG_DATA_SIZE = 32, MG_MAX_HTTP_HEADERS = 30 };

struct mg_connection;
typedef void (*mg_event_handler_t)(struct mg_connection *, int ev, void *ev_data);

struct mg_mgr {
    net::Loop *loop;  // null if the system had no descriptor for it; then poll only sleeps
};

struct mg_addr {
    uint8_t ip[16];  // network order; IPv4 in the first four bytes
    uint16_t port;   // network order
};

struct mg_connection {
    struct mg_mgr *mgr;
    struct mg_addr loc;     // listener: where it listens, with the true port if 0 was asked for
    mg_event_handler_t fn;  // may be null
    void *fn_data;
    alignas(8) char data[MG_DATA_SIZE];  // the handler's own, zero at MG_EV_OPEN
    unsigned is_listening : 1;
    unsigned is_client : 1;
    unsigned is_resolving : 1;   // always 0: only numeric hosts and localhost are connected to
    unsigned is_connecting : 1;  // client: MG_EV_CONNECT has not come yet
    unsigned is_draining : 1;    // set by handlers: close once what is queued has been sent
    unsigned is_closing : 1;     // set by handlers: close, dropping what is queued
    unsigned is_resp : 1;        // a request waits for its reply; the next one is not looked at
};

struct mg_http_header {
    struct mg_str name, value;
};

struct mg_http_message {
    struct mg_str method, uri, query, proto;             // requests only; uri is not decoded
    struct mg_http_header headers[MG_MAX_HTTP_HEADERS];  // unused ones have an empty name
    struct mg_str body;
};

void mg_mgr_init(struct mg_mgr *);
// Waits at most `ms` for something to happen, then does one round of work.
void mg_mgr_poll(struct mg_mgr *, int ms);
void mg_mgr_free(struct mg_mgr *);

// Null if the address cannot be bound. Takes "http://HOST:PORT", HOST a number, "localhost" or
// nothing for all addresses; port 0 takes a free one.
struct mg_connection *mg_http_listen(struct mg_mgr *, const char *url, mg_event_handler_t fn,
                                     void *fn_data);
// A connection that fails at once gets MG_EV_ERROR before this returns. Null only if there is
// no memory or descriptor to try.
struct mg_connection *mg_http_connect(struct mg_mgr *, const char *url, mg_event_handler_t fn,
                                      void *fn_data);

bool mg_send(struct mg_connection *, const void *, size_t);
// Formats: %c %d %u %x %s %m %%, with flags, width, precision and l or ll. %m takes the next
// argument as a printing function and puts quotes around what it prints.
size_t mg_printf(struct mg_connection *, const char *fmt, ...);
// Sets is_closing, then fires MG_EV_ERROR with the text, cut to 63 bytes.
void mg_error(struct mg_connection *, const char *fmt, ...);

// For %m: takes an int length (0: up to the NUL) and a text, prints it as JSON text wants it.
size_t mg_print_esc(void (*out)(char, void *), void *arg, va_list *ap);
#define MG_ESC(str) mg_print_esc, 0, (str)

uint64_t mg_millis(void);
struct mg_str mg_url_host(const char *url);
const char *mg_url_uri(const char *url);

// `headers` is a block of whole lines with their line ends, or null.
void mg_http_reply(struct mg_connection *, int status, const char *headers, const char *fmt, ...);

struct mg_fs;
extern struct mg_fs mg_fs_posix, mg_fs_packed;

struct mg_http_serve_opts {
    const char *root_dir;
    struct mg_fs *fs;  // null: mg_fs_posix
    bool is_log;       // files change often: tagged by their bytes, and never taken from a .gz
};
void mg_http_serve_dir(struct mg_connection *, struct mg_http_message *,
                       const struct mg_http_serve_opts *);

// What mg_fs_packed reads; the program defines both. The content must outlive every manager.
const char *mg_unpack(const char *path, size_t *size, time_t *mtime);  // null: no such name
const char *mg_unlist(size_t no);                                      // null: past the last
}

#endif
