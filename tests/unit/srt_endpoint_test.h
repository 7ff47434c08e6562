// What the tests of both SRT endpoints share.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "config/stream_uri.h"
#include "endpoints/stats_document.h"
#include "sim/raw_srt.h"
#include "sim/wait_until.h"
#include "tests/support/printed.h"

using sim::RawSrt;
using sim::SrtLibrary;

inline const std::string kListener = "srt://127.0.0.1:5000?mode=listener";
inline const std::string kCaller = "srt://127.0.0.1:5000?mode=caller&latency=20";
inline const std::string kListenSteps =
    "srt bind address\nsrt setsockflag\nsrt bind\nsrt listen\nsrt listening\n";

inline StreamUri enabledUri(const std::string &text) {
    StreamUri uri;
    printedBy([&] { EXPECT_EQ(parseStreamUri(text, uri), 0) << text; });
    uri.enable = true;
    return uri;
}

class SrtEndpointTest : public testing::Test {
protected:
    // All that opening printed, stdout before stderr, and whether it threw the int 1.
    template <typename Endpoint>
    std::string tryToOpen(const StreamUri &uri) {
        int thrown = 0;
        const std::string text = printedBy([&] {
            try {
                const Endpoint opened(uri);
            } catch (int value) {
                thrown = value;
            }
        });
        return text + (thrown == 1 ? "THROWN" : "OPEN");
    }

    // An option of the socket that the endpoint makes: libsrt numbers its sockets downwards.
    template <typename Endpoint>
    int optionOf(const std::string &uri, SRT_SOCKOPT option) {
        const SRTSOCKET before = RawSrt().id();
        const Endpoint opened(enabledUri(uri));
        return RawSrt(before - 1).get(option);
    }

    template <typename Endpoint>
    Json::Value statsOf(Endpoint &endpoint) {
        StatsDocument stats;
        endpoint.update_stats(&stats, 0);
        const MutexLock lock(stats.stats_mutex);
        return stats.document;
    }

    SrtLibrary library;
};
