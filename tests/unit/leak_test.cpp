// A thousand failed openings leave nothing behind: no descriptor, no thread, no memory.
#include <array>
#include <filesystem>

#include <malloc.h>

#include "endpoints/srt_input.h"
#include "endpoints/srt_output.h"
#include "tests/unit/srt_endpoint_test.h"

namespace {

// Descriptors, threads, and heap in units of 128 KB.
std::array<long, 3> footprint() {
    const auto entries = [](const char *directory) {
        return std::distance(std::filesystem::directory_iterator(directory), {});
    };
    const struct mallinfo2 heap = mallinfo2();
    return {entries("/proc/self/fd"), entries("/proc/self/task"),
            static_cast<long>((heap.uordblks + heap.hblkhd) >> 17)};
}

// libsrt collects closed sockets in the background, within a few seconds.
bool settlesAt(const std::array<long, 3> &most) {
    const auto fits = [&] {
        const auto now = footprint();
        return now[0] <= most[0] && now[1] <= most[1] && now[2] <= most[2] + 2;
    };
    return sim::waitUntil(fits, std::chrono::seconds(6));
}

using Leaks = SrtEndpointTest;

TEST_F(Leaks, FailedOpenings) {
    const StreamUri refused[] = {
        enabledUri("srt://127.0.0.1:5001?mode=neither"),
        enabledUri("srt://no-address:5001?mode=listener"),
        enabledUri("srt://192.0.2.1:5001?mode=listener"),
        enabledUri("srt://no.such.name.invalid:5001?mode=caller"),
    };
    const StreamUri unencrypted = enabledUri(kListener + "&passphrase=short");
    const auto round = [&] {
        for (std::size_t i = 0; i < 1000; ++i) {
            EXPECT_THROW(srt_input{refused[i % std::size(refused)]}, int);
            EXPECT_THROW(srt_output{refused[i % std::size(refused)]}, int);
            EXPECT_THROW(srt_input{unencrypted}, int);
        }
    };
    // The same rounds once more add nothing: by then every cache has its size.
    const auto start = footprint();
    printedBy(round);
    settlesAt(start);
    const auto before = footprint();
    printedBy(round);
    EXPECT_TRUE(settlesAt(before))
        << testing::PrintToString(before) << " became " << testing::PrintToString(footprint());
}

}  // namespace
