#include <cstdio>
#include <cstdlib>
#include <exception>
#include <srt/srt.h>
#include "bench/stream_run.h"
#include "sim/sandbox.h"
int main(int argc, char **argv) {
    sim::enterSandbox({});
    srt_startup(); srt_setloglevel(LOG_CRIT);
    bench::Job job; job.encoder = atoi(argv[1]); job.role = atoi(argv[2]) ? bench::Role::listener : bench::Role::caller;
    for (int r = 0; r < atoi(argv[4]); ++r)
    for (auto p : bench::programsFor(job)) {
        try {
        auto s = bench::runStream(p, job, (unsigned)atoi(argv[3]), 4);
        printf("%-30s cpu %.3f p1 %.1f med %.1f p99 %.1f n %lu lost %lu rss %.1f\n", bench::nameOf(p), s.cpu_s_per_gb, s.fastest_us, s.median_us, s.p99_us, s.payloads, s.lost, s.resident_mib);
        } catch (std::exception &e) { printf("%s: %s\n", bench::nameOf(p), e.what()); }
        fflush(stdout);
    }
    (void)argc;
}
