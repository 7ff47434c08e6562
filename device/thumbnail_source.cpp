#include "device/thumbnail_source.h"

#include <algorithm>
#include <cstring>

#include "net/mongoose.h"

namespace {

constexpr std::uint64_t kConnectMs = 500;
constexpr std::uint64_t kFetchMs = 1000;
constexpr std::uint64_t kPollMs = 50;

struct Fetch {
    ThumbnailSource *source;
    const char *url;
    bool done;
};

void sendRequest(mg_connection *connection, const char *url) {
    const mg_str host = mg_url_host(url);
    mg_printf(connection,
              "%s %s HTTP/1.0\r\nHost: %.*s\r\nContent-Type: octet-stream\r\n"
              "Content-Length: %d\r\n\r\n",
              "GET", mg_url_uri(url), static_cast<int>(host.len), host.buf, 0);
}

// The connection's own bytes hold the time by which it has to be connected.
void setDeadline(mg_connection *connection) {
    const std::uint64_t deadline = mg_millis() + kConnectMs;
    memcpy(connection->data, &deadline, sizeof deadline);
}

void checkDeadline(mg_connection *connection) {
    std::uint64_t deadline = 0;
    memcpy(&deadline, connection->data, sizeof deadline);
    if (mg_millis() > deadline && (connection->is_connecting || connection->is_resolving)) {
        mg_error(connection, "Connect timeout");
    }
}

void takeImage(mg_connection *connection, Fetch &fetch, const mg_http_message &reply) {
    if (!fetch.done) {
        fetch.source->store(reply.body.buf, reply.body.len);
    }
    connection->is_draining = 1;
    fetch.done = true;
}

void thumbnailClientHandler(mg_connection *connection, int event, void *event_data) {
    auto &fetch = *static_cast<Fetch *>(connection->fn_data);
    switch (event) {
    case MG_EV_OPEN:
        setDeadline(connection);
        break;
    case MG_EV_POLL:
        checkDeadline(connection);
        break;
    case MG_EV_CONNECT:
        sendRequest(connection, fetch.url);
        break;
    case MG_EV_HTTP_MSG:
        takeImage(connection, fetch, *static_cast<mg_http_message *>(event_data));
        break;
    case MG_EV_ERROR:
    case MG_EV_CLOSE:  // the only event where the server hangs up instead of answering
        fetch.done = true;
        break;
    default:
        break;
    }
}

}  // namespace

ThumbnailSource::ThumbnailSource(bool thumbnails)
    : url(thumbnails ? "http://127.0.0.1/encThumbnail" : "http://127.0.0.1/thumbnail0.jpg"),
      image_type(thumbnails ? "gif" : "jpeg") {}

void ThumbnailSource::fetch() {
    mg_log_level = MG_LL_NONE;
    Fetch state{.source = this, .url = url, .done = false};
    mg_mgr manager;
    mg_mgr_init(&manager);
    const std::uint64_t end = mg_millis() + kFetchMs;
    if (mg_http_connect(&manager, url, thumbnailClientHandler, &state) == nullptr) {
        state.done = true;
    }
    for (std::uint64_t now = mg_millis(); !state.done && now < end; now = mg_millis()) {
        mg_mgr_poll(&manager, static_cast<int>(std::min(kPollMs, end - now)));
    }
    mg_mgr_free(&manager);
}

void ThumbnailSource::store(const char *bytes, std::size_t count) {
    size = static_cast<std::uint32_t>(std::min(count, data.size()));
    std::copy_n(bytes, size, data.begin());
}
