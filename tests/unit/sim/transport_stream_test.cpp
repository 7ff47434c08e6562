#include "sim/transport_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "sim/clock.h"

namespace sim {
namespace {

using Message = std::vector<std::uint8_t>;

std::vector<Message> messagesOf(std::uint32_t source_id, std::size_t count) {
    TsGenerator generator(source_id, 4'000'000);
    std::vector<Message> messages(count, Message(kMessageBytes));
    for (Message &message : messages) {
        generator.fill(message.data(), message.size() / kPacketBytes);
    }
    return messages;
}

std::unique_ptr<TsCounters> checked(const std::vector<Message> &messages) {
    auto counters = std::make_unique<TsCounters>();
    TsChecker checker(*counters);
    for (const Message &message : messages) {
        checker.take(message.data(), message.size(), monotonicNs());
    }
    return counters;
}

TEST(TransportStream, EachFaultOfTheCarrierIsCountedAsWhatItIs) {
    struct Row {
        const char *name;
        std::function<void(std::vector<Message> &)> damage;
        std::uint64_t lost, reordered, duplicates, corrupt;
        bool continuity_breaks;
    };
    const Row rows[] = {
        {"nothing", [](auto &) {}, 0, 0, 0, 0, false},
        {"one message lost", [](auto &all) { all.erase(all.begin() + 2); }, 7, 0, 0, 0, true},
        {"neighbours swapped", [](auto &all) { std::swap(all[2], all[3]); }, 0, 7, 0, 0, true},
        {"sent twice", [](auto &all) { all.insert(all.begin() + 2, all[2]); }, 0, 0, 7, 0, true},
        {"sent twice, much later", [](auto &all) { all.push_back(all[2]); }, 0, 0, 7, 0, true},
        {"a byte changed", [](auto &all) { all[2][100] ^= 1U; }, 0, 0, 0, 1, false},
        {"sixteen packets lost, where the continuity counter comes round",
         [](auto &all) {
             all[2].resize(5 * kPacketBytes);
             all.erase(all.begin() + 3, all.begin() + 5);
         },
         16, 0, 0, 0, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        auto messages = messagesOf(3, 7);
        row.damage(messages);
        const auto counters = checked(messages);
        const SourceCounters &source = counters->sources[3];
        EXPECT_EQ(source.lost, row.lost);
        EXPECT_EQ(source.reordered, row.reordered);
        EXPECT_EQ(source.duplicates, row.duplicates);
        EXPECT_EQ(source.corrupt, row.corrupt);
        EXPECT_EQ(source.continuity_errors > 0, row.continuity_breaks);
        EXPECT_EQ(counters->foreign_bytes, 0U);
    }
}

TEST(TransportStream, MessagesThatCutPacketsArePutTogether) {
    const auto whole = messagesOf(1, 50);
    Message stream;
    for (const Message &message : whole) {
        stream.insert(stream.end(), message.begin(), message.end());
    }
    for (const std::size_t size : {1U, 100U, 187U, 189U, 1315U, 1317U}) {
        SCOPED_TRACE(size);
        std::vector<Message> cut;
        for (std::size_t at = 0; at < stream.size(); at += size) {
            const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
            cut.emplace_back(
                begin, begin + static_cast<std::ptrdiff_t>(std::min(size, stream.size() - at)));
        }
        const auto counters = checked(cut);
        EXPECT_EQ(counters->sources[1].packets, checked(whole)->sources[1].packets);
        EXPECT_EQ(counters->sources[1].lost, 0U);
        EXPECT_EQ(counters->foreign_bytes, 0U);
        EXPECT_GE(counters->messagesOf(size), stream.size() / size);
    }
}

TEST(TransportStream, SourcesThatFollowOneAnotherDoNotMix) {
    auto messages = messagesOf(1, 5);
    for (const Message &message : messagesOf(2, 5)) {
        messages.push_back(message);
    }

    const auto counters = checked(messages);

    EXPECT_EQ(counters->last_source, 2U);
    EXPECT_EQ(counters->sources[1].continuity_errors + counters->sources[2].continuity_errors, 0U);
    EXPECT_EQ(counters->sources[2].lost, 0U);
}

}  // namespace
}  // namespace sim
