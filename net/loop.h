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
// What all connections may hold in memory: requests on their way in, replies on their way out.
// The longest single reply fits, the longest body with each byte escaped in six.
constexpr std::size_t kMaxHeld = std::size_t{24} * 1024 * 1024;

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

    mg_mgr *const owner;         // fixed at construction
    boost::asio::io_context io;  // destroyed after the connections

private:
    void waitForWork(int ms);
    std::uint64_t nextWake() const;
    void visit(Connection &connection);
    void limitMemory();
    void removeClosed();
    void close(Connection &connection);

    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> keep_waiting;
    std::list<std::unique_ptr<Connection>> connections;  // newest first
};

}  // namespace net
