// The machine behind struct mg_mgr: the list of connections and the rounds that visit them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "net/connection.h"

namespace net {

// More clients than this at a time would use up the descriptors that the stream, the log and
// the settings file need.
constexpr std::size_t kMaxClients = 256;
// Bodies that clients are still sending may take this much memory between them.
constexpr std::size_t kMaxHeld = std::size_t{16} * 1024 * 1024;

// Threads: the one that polls the manager. Loops share nothing, so that a handler of one can
//          poll another to its end.
// Owner:   struct mg_mgr, from mg_mgr_init to mg_mgr_free.
// Errors:  the constructor throws if the system has no descriptor left; poll() does not throw.
class Loop {
public:
    explicit Loop(mg_mgr *manager);
    ~Loop();
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    // Waits at most `ms` for something to do, then visits every connection once.
    void poll(int ms);

    void add(std::unique_ptr<Connection> connection);

    // Brings the number of clients below kMaxClients: the one that has been without a request
    // longest goes, one that is being answered only if all are.
    void makeRoomForClient();

    // Bytes of input that all connections hold together.
    std::size_t held() const;

    mg_mgr *const owner;         // fixed at construction
    boost::asio::io_context io;  // destroyed after the connections

private:
    void waitForWork(int ms);
    std::uint64_t nextWake() const;
    void visit(Connection &connection);
    void removeClosed();
    void close(Connection &connection);

    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> keep_waiting;
    std::list<std::unique_ptr<Connection>> connections;  // newest first
};

}  // namespace net
