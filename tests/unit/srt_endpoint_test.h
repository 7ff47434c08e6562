// What the tests of both SRT endpoints share.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <syslog.h>

#include "config/stream_uri.h"
#include "endpoints/stats_document.h"
#include "sim/wait_until.h"
#include "tests/support/raw_srt.h"

inline StreamUri enabledUri(const std::string &text) {
    StreamUri uri;
    testing::internal::CaptureStdout();
    const int error = parseStreamUri(text, uri);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(error, 0) << text;
    uri.enable = true;
    return uri;
}

class SrtEndpointTest : public testing::Test {
protected:
    // All that opening printed, stdout before stderr, and whether it threw the int 1.
    template <typename Endpoint>
    std::string tryToOpen(const StreamUri &uri) {
        openlog("t", LOG_PERROR, LOG_USER);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        bool threw = false;
        try {
            const Endpoint opened(uri);
        } catch (int value) {
            threw = value == 1;
        }
        std::string text = testing::internal::GetCapturedStdout();
        text += testing::internal::GetCapturedStderr();
        return text + (threw ? "THROWN" : "OPEN");
    }

    template <typename Endpoint>
    Json::Value statsOf(Endpoint &endpoint) {
        StatsDocument stats;
        endpoint.update_stats(&stats, 0);
        const MutexLock lock(stats.stats_mutex);
        return stats.document;
    }

    SrtLibraryForTest library;
};
