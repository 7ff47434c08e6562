#include "sim/web_server.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <utility>

#include "sim/loopback.h"
#include "sim/test_picture.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t kPort = 80;
constexpr int kStopCheckMs = 50;
constexpr int kRequestLimitMs = 2000;
constexpr int kBacklog = 16;
constexpr auto kIdle = 5ms;

// The head of a request; empty if the client has not sent it whole in time.
std::string readHead(const FileDescriptor &client) {
    std::string head;
    pollfd waiting{client.get(), POLLIN, 0};
    std::array<char, 4096> bytes{};
    while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = poll(&waiting, 1, kRequestLimitMs) > 0
                                  ? recv(client.get(), bytes.data(), bytes.size(), 0)
                                  : 0;
        if (count <= 0) {
            return {};
        }
        head.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return head;
}

// The second word of the first line.
std::string pathIn(const std::string &head) {
    const std::size_t begin = head.find(' ') + 1;
    return head.substr(begin, head.find(' ', begin) - begin);
}

}  // namespace

WebServer::WebServer() : listener(listenAt(kPort, kBacklog)), thread([this] { run(); }) {}

WebServer::~WebServer() {
    stop = true;
    thread.join();
}

void WebServer::setReply(const std::string &path, const std::string &body, unsigned status) {
    const std::lock_guard lock(mutex);
    replies[path] = {status, body};
}

void WebServer::addUpload(const std::string &name, const std::string &content) {
    const std::lock_guard lock(mutex);
    uploads[name] = content;
}

std::vector<std::string> WebServer::requests() const {
    const std::lock_guard lock(mutex);
    return asked;
}

std::string WebServer::lastHead() const {
    const std::lock_guard lock(mutex);
    return last_head;
}

void WebServer::run() {
    pollfd waiting{listener.get(), POLLIN, 0};
    while (!stop) {
        if (poll(&waiting, 1, kStopCheckMs) > 0) {
            serve(FileDescriptor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
        }
    }
}

void WebServer::serve(const FileDescriptor &client) {
    const std::string head = readHead(client);
    if (head.empty()) {
        return;
    }
    const Reply reply = replyTo(head);
    while (manner == WebManner::hang && !stop) {
        std::this_thread::sleep_for(kIdle);
    }
    std::string message = "HTTP/1.0 " + std::to_string(reply.status) +
                          " As told\r\nContent-Length: " + std::to_string(reply.body.size()) +
                          "\r\n\r\n" + reply.body;
    if (manner == WebManner::break_off) {
        message.resize(message.size() - reply.body.size() / 2);
    }
    send(client.get(), message.data(), message.size(), MSG_NOSIGNAL);
}

WebServer::Reply WebServer::replyTo(const std::string &head) {
    const std::string path = pathIn(head);
    const std::string directory = "/uploads/";
    const std::lock_guard lock(mutex);
    asked.push_back(path);
    last_head = head;
    if (const auto fixed = replies.find(path); fixed != replies.end()) {
        return fixed->second;
    }
    if (path == "/encThumbnail") {
        return {200, gifPicture(picture++)};
    }
    if (path == "/thumbnail0.jpg") {
        return {200, jpegPicture(picture++)};
    }
    if (path == directory) {
        return {200, uploadsPage()};
    }
    if (path.rfind(directory, 0) == 0) {
        const auto upload = uploads.find(path.substr(directory.size()));
        if (upload != uploads.end()) {
            return {200, upload->second};
        }
    }
    return {404, "Not found\n"};
}

std::string WebServer::uploadsPage() const {
    std::string page = "<html><head><title>Index of /uploads/</title></head><body>\n"
                       "<h1>Index of /uploads/</h1><hr><pre><a href=\"../\">../</a>\n";
    for (const auto &[name, content] : uploads) {
        page.append("<a href=\"").append(name).append("\">").append(name).append("</a>  ");
        page.append(std::to_string(content.size())).append("\n");
    }
    return page + "</pre><hr></body></html>\n";
}

}  // namespace sim
