#include "bench/api_run.h"

#include <algorithm>
#include <atomic>
#include <list>
#include <thread>
#include <vector>

#include "sim/clock.h"
#include "sim/http_client.h"

namespace bench {
namespace {

class Client {
public:
    Client() : worker([this] { run(); }) {}
    ~Client() { end(); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    void end() {
        stop = true;
        if (worker.joinable()) {
            worker.join();
        }
    }
    // Both only after end(). Whether every request had its reply, and each one's time in
    // milliseconds.
    [[nodiscard]] bool wasServed() const { return served; }
    [[nodiscard]] const std::vector<double> &delays() const { return delays_ms; }

private:
    void run() {
        if (!sim::apiListens()) {
            return;
        }
        const std::string request = sim::requestText("/api/stats");
        sim::RawClient connection(sim::kApiPort);
        do {
            const std::uint64_t asked_ns = sim::monotonicNs();
            served = connection.send(request) && connection.reply().status() == 200;
            delays_ms.push_back(static_cast<double>(sim::monotonicNs() - asked_ns) / 1e6);
        } while (served && !stop);
    }

    std::atomic<bool> stop{false};
    bool served = false;            // the worker's until end()
    std::vector<double> delays_ms;  // the worker's until end()
    std::thread worker;
};

}  // namespace

ApiResult streamBesideClients(std::size_t clients, std::uint64_t rate_mbit, const Span &span) {
    std::list<Client> all(clients);
    const std::uint64_t start_ns = sim::monotonicNs();
    ApiResult result;
    const auto endClients = [&](const Contender &) {
        std::for_each(all.begin(), all.end(), [](Client &client) { client.end(); });
    };
    result.stream = runStream(Program::daemon, {}, rate_mbit, span, endClients);
    const double lasted_s = static_cast<double>(sim::monotonicNs() - start_ns) / 1e9;
    std::vector<double> delays_ms;
    for (const Client &client : all) {
        if (!client.wasServed()) {
            Contender::fail("a client of the API got no reply");
        }
        delays_ms.insert(delays_ms.end(), client.delays().begin(), client.delays().end());
    }
    if (!delays_ms.empty()) {
        std::sort(delays_ms.begin(), delays_ms.end());
        result.replies_per_s = static_cast<double>(delays_ms.size()) / lasted_s;
        result.median_ms = delays_ms[delays_ms.size() / 2];
        result.p99_ms = delays_ms[delays_ms.size() * 99 / 100];
    }
    return result;
}

}  // namespace bench
