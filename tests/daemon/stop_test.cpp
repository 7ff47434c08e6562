// How long a stop takes. It runs while no other test does.
#include <gtest/gtest.h>

#include "sim/daemon.h"
#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/srt_receiver.h"
#include "sim/srt_sender.h"
#include "sim/udp_sink.h"

namespace {

using namespace std::chrono_literals;
using namespace sim;

TEST(Stop, TakesThreeSecondsAtMostWhateverTheFarEndDoes) {
    constexpr PeerMode kCalled = PeerMode::listener;
    constexpr PeerMode kCalls = PeerMode::caller;
    const auto streams = [](SrtPeer &) {};
    const auto pauses = [](SrtPeer &far_end) { far_end.pause(); };
    const auto freezes = [](SrtPeer &far_end) { far_end.freeze(); };
    const auto leaves = [](SrtPeer &far_end) { far_end.breakOff(); };
    const struct {
        const char *name, *product;
        PeerMode mode;
        void (*then)(SrtPeer &);
        bool flood = false;
    } rows[] = {
        {"decoder calls", "WQ-1", kCalled, streams},
        {"decoder calls, silence", "WQ-1", kCalled, pauses},
        {"decoder calls, far end hangs", "WQ-1", kCalled, freezes},
        {"decoder listens", "WQ-1", kCalls, streams},
        {"decoder listens, silence", "WQ-1", kCalls, pauses},
        {"decoder listens, nobody", "WQ-1", kCalls, leaves},
        {"encoder calls", "WX-1", kCalled, streams},
        {"encoder calls, nobody reads", "WX-1", kCalled, pauses},
        {"encoder calls, far end hangs", "WX-1", kCalled, freezes},
        {"encoder listens", "WX-1", kCalls, streams},
        {"encoder listens, nobody", "WX-1", kCalls, leaves},
        {"encoder calls, far end takes no more", "WX-1", kCalled, pauses, true},
        {"encoder listens, far end takes no more", "WX-1", kCalls, pauses, true},
    };
    const UdpSink unit;
    const RouteDriver driver;
    RouteIngress ingress;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const PeerOptions options{.port = 5000, .mode = row.mode};
        std::optional<SrtSender> sender;
        std::optional<SrtReceiver> receiver;
        SrtPeer &far_end = row.product[1] == 'Q'
                               ? static_cast<SrtPeer &>(sender.emplace(SenderOptions{options}))
                               : receiver.emplace(options);
        Daemon daemon({.primary = far_end.uri("&sndbuf=100000"), .product = row.product});
        ASSERT_TRUE(waitUntil([&] { return far_end.link().packets > 100; }));
        row.then(far_end);
        ASSERT_TRUE(!row.flood || ingress.floodUntilFull());
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(daemon.stop(10s), 0);
        EXPECT_LE(std::chrono::steady_clock::now() - start, 3s);
    }
}

}  // namespace
