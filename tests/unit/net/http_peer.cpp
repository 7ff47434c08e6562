#include "tests/unit/net/http_peer.h"

#include <netinet/in.h>

#include <stdexcept>
#include <utility>

HttpServer::HttpServer(std::string root, mg_fs *files)
    : root_dir(std::move(root)), root_files(files) {
    mg_log_level = MG_LL_NONE;
    mg_mgr_init(&manager);
    mg_connection *listener = mg_http_listen(&manager, "http://127.0.0.1:0", onEvent, this);
    if (listener == nullptr) {
        throw std::runtime_error("no port to listen on");
    }
    port = ntohs(listener->loc.port);
    thread = std::thread([this] {
        while (!stop) {
            mg_mgr_poll(&manager, 20);
        }
        mg_mgr_free(&manager);
    });
}

HttpServer::~HttpServer() {
    stop = true;
    thread.join();
}

void HttpServer::onEvent(mg_connection *c, int event, void *data) {
    auto *self = static_cast<HttpServer *>(c->fn_data);
    if (event == MG_EV_OPEN) {
        ++self->open;
    } else if (event == MG_EV_CLOSE) {
        --self->open;
    } else if (event == MG_EV_POLL && c->is_listening) {
        ++self->rounds;
    } else if (event == MG_EV_HTTP_MSG) {
        ++self->calls;
        self->onRequest(c, static_cast<mg_http_message *>(data));
    }
}

void HttpServer::onRequest(mg_connection *c, mg_http_message *request) {
    const auto is = [&](const char *route) {
        return mg_match(request->uri, mg_str(route), nullptr);
    };
    if (is("/echo")) {
        mg_http_reply(c, 200, "X-A: b\r\n", "%.*s", static_cast<int>(request->body.len),
                      request->body.buf);
    } else if (is("/big")) {
        mg_http_reply(c, 200, nullptr, "%s", std::string(400000, 'b').c_str());
    } else if (is("/huge")) {
        mg_http_reply(c, 200, nullptr, "%s", std::string(kHugeReply, 'h').c_str());
    } else if (is("/thumb")) {
        mg_printf(c, "HTTP/1.0 200 OK\r\nContent-Length: %lu\r\n\r\n", 4UL);
        mg_send(c, "JPEG\r\n", 6);
        c->is_draining = 1;
    } else if (is("/raw")) {
        mg_send(c, raw_reply.data(), raw_reply.size());
        c->is_draining = 1;
    } else if (is("/throw")) {
        throw std::runtime_error("a route failed");
    } else if (!is("/silent")) {
        const mg_http_serve_opts options = {root_dir.c_str(), root_files, false};
        mg_http_serve_dir(c, request, &options);
    }
}

Reply ask(const HttpServer &server, const std::string &request) {
    RawClient client(server.port);
    client.send(request);
    return client.reply(request.rfind("HEAD", 0) != 0);
}

Reply get(const HttpServer &server, const std::string &uri) {
    return ask(server, "GET " + uri + " HTTP/1.1\r\nHost: unit\r\n\r\n");
}
