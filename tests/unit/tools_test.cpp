// What the other tests rely on: that the checker notices every fault of a stream, that the
// product's files are not the machine's.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <functional>
#include <memory>

#include <sys/stat.h>

#include "sim/clock.h"
#include "sim/transport_stream.h"

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
    // Lost, reordered, doubled and corrupt packets.
    using Counts = std::array<std::uint64_t, 4>;
    using Damage = std::function<void(std::vector<Message> &)>;
    const std::tuple<const char *, Damage, Counts, bool> rows[] = {
        {"nothing", [](auto &) {}, {0, 0, 0, 0}, false},
        {"one lost", [](auto &all) { all.erase(all.begin() + 2); }, {7, 0, 0, 0}, true},
        {"two swapped", [](auto &all) { std::swap(all[2], all[3]); }, {0, 7, 0, 0}, true},
        {"doubled", [](auto &all) { all.insert(all.begin() + 2, all[2]); }, {0, 0, 7, 0}, true},
        {"doubled later", [](auto &all) { all.push_back(all[2]); }, {0, 0, 7, 0}, true},
        {"a byte changed", [](auto &all) { all[2][100] ^= 1U; }, {0, 0, 0, 1}, false},
        {"sixteen packets lost, where the continuity counter comes round",
         [](auto &all) {
             all[2].resize(5 * kPacketBytes);
             all.erase(all.begin() + 3, all.begin() + 5);
         },
         {16, 0, 0, 0},
         false},
    };
    for (const auto &[name, damage, counts, continuity_breaks] : rows) {
        SCOPED_TRACE(name);
        auto messages = messagesOf(3, 7);
        damage(messages);
        const auto counters = checked(messages);
        const SourceCounters &source = counters->sources[3];
        EXPECT_EQ((Counts{source.lost, source.reordered, source.duplicates, source.corrupt}),
                  counts);
        EXPECT_EQ(source.continuity_errors > 0, continuity_breaks);
        EXPECT_EQ(counters->foreign_bytes, 0U);
    }
}

TEST(Sandbox, WhatTheProductWritesToLiesOnPrivateFileSystems) {
    const auto file_system = [](const char *path) {
        struct stat info {};
        return stat(path, &info) == 0 ? info.st_dev : 0;
    };
    for (const char *path : {"/tmp", "/dev", "/media/hd0/media", "/etc/cron.d", "/etc/sysconfig",
                             "/var/spool/cron/crontabs", "/sbin", "/usr/local/bin"}) {
        EXPECT_NE(file_system(path), file_system("/usr")) << path;
    }
    EXPECT_FALSE(std::ofstream("/etc/passwd", std::ios::app).is_open());
}

}  // namespace
}  // namespace sim
