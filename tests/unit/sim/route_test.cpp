#include <gtest/gtest.h>

#include "sim/daemon.h"
#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/srt_receiver.h"

namespace sim {
namespace {

TEST(Route, StreamGoesFromTheDeviceThroughTheDaemonToTheFarEnd) {
    RouteDriver driver;
    RouteIngress ingress;
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1"});
    const TsCounters &received = far_end.received();
    const SourceCounters &source = received.sources[ingress.id()];

    ASSERT_TRUE(waitUntil([&] { return received.messages > 300; })) << daemon.standardError();
    ingress.pause();
    ingress.burst(700);
    EXPECT_TRUE(waitUntil([&] { return received.messages == ingress.writtenPieces(); }))
        << received.messages << " of " << ingress.writtenPieces();
    ingress.end();
    ASSERT_TRUE(waitUntil([&] { return !ingress.isOpen(); }));
    ingress.comeBack();
    ingress.resume();
    const std::uint64_t before = received.messages;
    EXPECT_TRUE(waitUntil([&] { return received.messages > before + 100; }));

    EXPECT_EQ(source.lost + source.continuity_errors + source.corrupt, 0U);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_TRUE(waitUntil([&] { return driver.routeDowns() == 1; }));
    EXPECT_GE(driver.routeUps(), 1);
    EXPECT_EQ(driver.commands().front().bytes.back(), '\0');
    EXPECT_NE(driver.commands().back().bytes.back(), '\0');
}

TEST(Route, FileIngressGivesAThousandUnitsInOneRead) {
    RouteDriver driver;
    IngressFile ingress(1000 * kMessageBytes);
    SrtReceiver far_end(5000);
    Daemon daemon({.primary = far_end.uri(), .product = "WX-1"});

    EXPECT_TRUE(waitUntil([&] { return far_end.received().messagesOf(kMessageBytes) == 1000; }))
        << far_end.received().messages;
    ingress.append(kMessageBytes);
    EXPECT_TRUE(waitUntil([&] { return far_end.received().messages == 1001; }));
}

}  // namespace
}  // namespace sim
