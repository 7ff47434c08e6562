// A thousand failed openings leave nothing behind: no descriptor, no thread, no memory.
#include <filesystem>

#include <malloc.h>

#include "endpoints/srt_input.h"
#include "endpoints/srt_output.h"
#include "tests/unit/srt_endpoint_test.h"

namespace {

constexpr long kSlackKb = 256;

struct Footprint {
    long descriptors, threads, allocated_kb;
};

long entries(const char *directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

Footprint footprint() {
    const struct mallinfo2 heap = mallinfo2();
    return {entries("/proc/self/fd"), entries("/proc/self/task"),
            static_cast<long>((heap.uordblks + heap.hblkhd) / 1024)};
}

class Leaks : public SrtEndpointTest {
protected:
    // The same rounds once more add nothing: by then every cache has its size.
    template <typename Round>
    void expectNoGrowth(int rounds, Round round) {
        openlog("t", 0, LOG_USER);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const Footprint start = footprint();
        for (int i = 0; i < rounds; ++i) {
            round(i);
        }
        settle(start);
        const Footprint before = footprint();
        for (int i = 0; i < rounds; ++i) {
            round(i);
        }
        settle(before);
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        const Footprint after = footprint();
        EXPECT_LE(after.descriptors, before.descriptors);
        EXPECT_LE(after.threads, before.threads);
        EXPECT_LE(after.allocated_kb, before.allocated_kb + kSlackKb);
    }

    // libsrt collects closed sockets in the background, within a few seconds.
    static void settle(const Footprint &wanted) {
        sim::waitUntil(
            [&] {
                const Footprint now = footprint();
                return now.descriptors <= wanted.descriptors && now.threads <= wanted.threads &&
                       now.allocated_kb <= wanted.allocated_kb + kSlackKb;
            },
            std::chrono::seconds(6));
    }
};

TEST_F(Leaks, FailedOpenings) {
    const StreamUri refused[] = {
        enabledUri("srt://127.0.0.1:5001?mode=neither"),
        enabledUri("srt://no-address:5001?mode=listener"),
        enabledUri("srt://192.0.2.1:5001?mode=listener"),
        enabledUri("srt://no.such.name.invalid:5001?mode=caller"),
    };
    const StreamUri unencrypted = enabledUri("srt://127.0.0.1:5001?mode=listener&passphrase=short");
    expectNoGrowth(1000, [&](int i) {
        const StreamUri &uri = refused[static_cast<std::size_t>(i) % std::size(refused)];
        EXPECT_THROW(srt_input{uri}, int);
        EXPECT_THROW(srt_input{unencrypted}, int);
        EXPECT_THROW(srt_output{uri}, int);
    });
}

}  // namespace
