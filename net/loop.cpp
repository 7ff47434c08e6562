#include "net/loop.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <tuple>

#include "net/log.h"

namespace net {
namespace {

// So many bytes in every connection are no danger; ordinary ones have fewer.
constexpr std::size_t kUncounted = std::size_t{4} * 1024;

}  // namespace

Loop::Loop(mg_mgr *manager) : owner(manager), io(1), keep_waiting(io.get_executor()) {}

Loop::~Loop() {
    while (!connections.empty()) {
        const auto last = std::move(connections.front());
        connections.pop_front();
        close(*last);
    }
}

void Loop::poll(int ms) {
    waitForWork(ms);
    for (const auto &connection : connections) {  // new ones go to the front: next round
        visit(*connection);
    }
    removeClosed();
}

void Loop::waitForWork(int ms) {
    const std::uint64_t wake = nextWake();
    const std::uint64_t now = mg_millis();
    const std::uint64_t limit = wake > now ? wake - now : 0;
    const auto wait = std::min(limit, static_cast<std::uint64_t>(std::max(ms, 0)));
    if (wait > 0) {
        io.run_one_for(std::chrono::milliseconds(wait));
    }
    io.poll();
}

std::uint64_t Loop::nextWake() const {
    std::uint64_t earliest = kNever;
    for (const auto &connection : connections) {
        earliest = std::min(earliest, connection->is_closing ? 0 : connection->wakeAt());
    }
    return earliest;
}

void Loop::visit(Connection &connection) {
    try {
        std::uint64_t now = mg_millis();
        connection.emit(MG_EV_POLL, &now);
        if (!connection.is_closing) {
            connection.work();
        }
        if (connection.held() > kUncounted) {
            limitMemory();
        }
    } catch (const std::exception &error) {
        logError("connection closed", error.what());
        connection.is_closing = 1;
    } catch (...) {
        logError("connection closed", "unknown exception");
        connection.is_closing = 1;
    }
}

void Loop::removeClosed() {
    for (auto at = connections.begin(); at != connections.end();) {
        if (!(*at)->is_closing) {
            ++at;
            continue;
        }
        const auto closed = std::move(*at);
        at = connections.erase(at);
        close(*closed);
    }
}

void Loop::close(Connection &connection) {
    connection.closeSocket();
    try {
        connection.emit(MG_EV_CLOSE, nullptr);
    } catch (...) {
        logError("connection closed", "its handler threw");
    }
}

void Loop::add(std::unique_ptr<Connection> connection) {
    connections.push_front(std::move(connection));
}

void Loop::makeRoomForClient() {
    std::size_t clients = 0;
    Connection *longest_idle = nullptr;
    const auto rank = [](const Connection &c) { return std::tuple(c.isBusy(), c.last_request); };
    for (const auto &connection : connections) {
        if (!connection->isReplaceable() || connection->is_closing) {
            continue;
        }
        ++clients;
        if (longest_idle == nullptr || rank(*connection) <= rank(*longest_idle)) {
            longest_idle = connection.get();
        }
    }
    if (clients < kMaxClients) {
        return;
    }
    longest_idle->closeSocket();
    longest_idle->is_closing = 1;
}

// While all hold too much, the one that holds most has to let go; of equals, the oldest.
void Loop::limitMemory() {
    std::size_t sum = 0;
    do {
        sum = 0;
        Connection *fattest = nullptr;
        for (const auto &connection : connections) {
            if (connection->is_closing) {
                continue;
            }
            sum += connection->held();
            if (fattest == nullptr || connection->held() >= fattest->held()) {
                fattest = connection.get();
            }
        }
        if (sum > kMaxHeld) {
            fattest->letGo();
        }
    } while (sum > kMaxHeld);
}

}  // namespace net
