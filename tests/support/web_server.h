// A web server of the unit or of the network around it: sends prepared bytes, right or wrong.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// "HTTP/1.1 200 OK" with `body`, and a length of its own where that is to be wrong.
inline std::string okReply(const std::string &body, std::size_t length) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" + body;
}
inline std::string okReply(const std::string &body) {
    return okReply(body, body.size());
}

// Serves one connection at a time and closes it after the reply. A path for which no bytes
// are set gets silence until the client gives up.
class WebServer {
public:
    explicit WebServer(const char *address, std::uint16_t port = 80)
        : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(port);
        inet_pton(AF_INET, address, &place.sin_addr);
        const int yes = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        if (bind(listener, reinterpret_cast<sockaddr *>(&place), sizeof place) != 0 ||
            listen(listener, 16) != 0) {
            throw std::runtime_error("no web server at " + std::string(address));
        }
        thread = std::thread([this] { run(); });
    }
    ~WebServer() {
        stop = true;
        thread.join();
        close(listener);
    }

    void set(const std::string &path, const std::string &bytes) {
        const std::lock_guard lock(mutex);
        replies[path] = bytes;
    }
    void fallSilent(const std::string &path) {
        const std::lock_guard lock(mutex);
        replies.erase(path);
    }
    std::string lastRequest() {
        const std::lock_guard lock(mutex);
        return last;
    }

private:
    bool readable(int fd) const {
        pollfd wanted{.fd = fd, .events = POLLIN, .revents = 0};
        while (!stop) {
            if (poll(&wanted, 1, 20) > 0) {
                return true;
            }
        }
        return false;
    }
    void run() {
        while (readable(listener)) {
            const int client = accept(listener, nullptr, nullptr);
            serve(client);
            close(client);
        }
    }
    void serve(int client) {
        std::string request;
        char bytes[4096];
        while (request.find("\r\n\r\n") == std::string::npos && readable(client)) {
            const ssize_t count = recv(client, bytes, sizeof bytes, 0);
            if (count <= 0) {
                return;
            }
            request.append(bytes, static_cast<std::size_t>(count));
        }
        const std::string reply = replyTo(request);
        if (reply.empty()) {
            readable(client);  // its end
        }
        send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
    std::string replyTo(const std::string &request) {
        const std::lock_guard lock(mutex);
        last = request;
        const std::size_t begin = request.find(' ') + 1;
        const auto found = replies.find(request.substr(begin, request.find(' ', begin) - begin));
        return found == replies.end() ? "" : found->second;
    }

    const int listener;
    std::mutex mutex;
    std::map<std::string, std::string> replies;  // guarded by mutex
    std::string last;                            // guarded by mutex
    std::atomic<bool> stop{false};
    std::thread thread;
};
