#include "sim/srt_receiver.h"
#include "sim/srt_sender.h"

#include <gtest/gtest.h>

#include "sim/lossy_relay.h"
#include "sim/wait_until.h"

namespace sim {
namespace {

PeerOptions callerTo(std::uint16_t port) {
    PeerOptions options;
    options.port = port;
    options.mode = PeerMode::caller;
    return options;
}

// True once `count` more messages have come.
bool receives(const SrtReceiver &receiver, std::uint64_t count) {
    const std::uint64_t wanted = receiver.received().messages + count;
    return waitUntil([&] { return receiver.received().messages >= wanted; });
}

bool fallsSilent(const SrtReceiver &receiver) {
    return waitUntil([&] {
        const std::uint64_t before = receiver.received().messages;
        return !waitUntil([&] { return receiver.received().messages > before; },
                          std::chrono::milliseconds(300));
    });
}

TEST(SrtPeer, StreamArrivesWholeAndAtItsRate) {
    SenderOptions options;
    options.port = 5000;
    options.rate_bps = 8'000'000;
    SrtSender sender(options);
    SrtReceiver receiver(callerTo(5000));

    ASSERT_TRUE(waitUntil([&] { return receiver.received().rate_bps > 0; }));

    const TsCounters &received = receiver.received();
    const SourceCounters &source = received.sources[sender.id()];
    EXPECT_NEAR(static_cast<double>(received.rate_bps), 8e6, 8e5);
    EXPECT_EQ(source.lost + source.reordered + source.continuity_errors + source.corrupt, 0U);
    EXPECT_EQ(received.messagesOf(kMessageBytes), received.messages);
    EXPECT_GE(received.latency_ns[0], 100'000'000U);
}

TEST(SrtPeer, PauseFreezeVanishAndBreakOffEachSilenceAndEachEnd) {
    SrtSender sender(5000);
    SrtReceiver receiver(callerTo(5000));
    ASSERT_TRUE(receives(receiver, 100));

    sender.pause();
    EXPECT_TRUE(fallsSilent(receiver));
    EXPECT_TRUE(receiver.isConnected());
    sender.resume();
    EXPECT_TRUE(receives(receiver, 100));

    sender.freeze();
    EXPECT_TRUE(fallsSilent(receiver));
    sender.thaw();
    EXPECT_TRUE(receives(receiver, 100));

    sender.breakOff();
    EXPECT_TRUE(waitUntil([&] { return !receiver.isConnected(); }));
    sender.restart();
    EXPECT_TRUE(receives(receiver, 100));

    sender.vanish();
    EXPECT_FALSE(sender.isRunning());
    sender.restart();
    EXPECT_TRUE(receives(receiver, 100));
    EXPECT_EQ(receiver.connectionsMade(), 3U);
    EXPECT_EQ(receiver.received().sources[sender.id()].runs, 3U);
    EXPECT_EQ(receiver.received().sources[sender.id()].continuity_errors, 0U);
}

TEST(SrtPeer, OnlyTheRightPassphraseAndStreamIdAreLetIn) {
    SenderOptions options;
    options.port = 5000;
    options.stream_id = "studio";
    options.passphrase = "correct horse";
    SrtSender sender(options);
    PeerOptions right = callerTo(5000);
    right.stream_id = "studio";
    right.passphrase = "correct horse";
    PeerOptions other_id = right;
    other_id.stream_id = "cellar";
    PeerOptions other_phrase = right;
    other_phrase.passphrase = "battery staple";

    SrtReceiver refused_id(other_id);
    SrtReceiver refused_phrase(other_phrase);
    SrtReceiver admitted(right);

    EXPECT_TRUE(receives(admitted, 100));
    EXPECT_EQ(refused_id.connectionsMade(), 0U);
    EXPECT_EQ(refused_phrase.received().messages, 0U);
}

TEST(SrtPeer, RelayLosesDelaysAndCuts) {
    SrtSender sender(5000);
    LossyRelay relay({.port = 6000,
                      .target_port = 5000,
                      .loss_percent = 5,
                      .delay = std::chrono::milliseconds(20)});
    PeerOptions options = callerTo(6000);
    options.latency_ms = 400;
    SrtReceiver receiver(options);

    EXPECT_TRUE(receives(receiver, 400));
    EXPECT_GT(receiver.link().lost, 0U);
    EXPECT_GE(receiver.link().round_trip_ms, 35.0);
    EXPECT_EQ(receiver.received().sources[sender.id()].lost, 0U);

    relay.cut(true);
    EXPECT_TRUE(waitUntil([&] { return !receiver.isConnected(); }));
    relay.cut(false);
    EXPECT_TRUE(receives(receiver, 100));
}

}  // namespace
}  // namespace sim
