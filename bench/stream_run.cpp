#include "bench/stream_run.h"

#include <memory>
#include <stdexcept>

#include "bench/far_ends.h"
#include "bench/wait_until.h"

namespace bench {
namespace {

constexpr auto kStartLimit = std::chrono::seconds(15);
// Longer than a listening encoder takes from its client's arrival to a steady stream.
constexpr auto kWarmUp = std::chrono::milliseconds(1500);

// The far ends of a job, all that the program under test needs to see data.
struct Ends {
    Ends(const Job &job, std::uint64_t rate_mbit, Recorder &recorder) {
        const Role far_role = opposite(job.role);
        if (job.encoder) {
            writer = std::make_unique<FifoWriter>(rate_mbit);
            receiver = std::make_unique<SrtReceiver>(far_role, job.port, job.latency_ms, recorder);
        } else {
            sink = std::make_unique<UdpSink>(recorder);
            sender = std::make_unique<SrtSender>(far_role, job.port, job.latency_ms, rate_mbit);
        }
    }

    std::unique_ptr<FifoWriter> writer;
    std::unique_ptr<SrtReceiver> receiver;
    std::unique_ptr<UdpSink> sink;
    std::unique_ptr<SrtSender> sender;
};

StreamResult summarize(const Window &window, double cpu_s, int latency_ms) {
    const double configured_us = latency_ms * 1000.0;
    StreamResult result;
    result.cpu_s_per_gb = cpu_s / (static_cast<double>(window.bytes) / 1e9);
    result.median_us = window.delayUs(0.5) - configured_us;
    result.p99_us = window.delayUs(0.99) - configured_us;
    result.payloads = window.payloads;
    result.lost = window.lost;
    return result;
}

}  // namespace

int freshPort() {
    static int next = 5000;
    return next++;
}

StreamResult runStream(Program program, Job job, std::uint64_t rate_mbit, double seconds,
                       const Visit &visit) {
    job.port = freshPort();
    Recorder recorder;
    const Ends ends(job, rate_mbit, recorder);
    const Contender contender(program, job);
    if (!waitUntil([&] { return recorder.firstArrivalNs() != 0; }, kStartLimit)) {
        throw std::runtime_error("no data came; the program said:\n" + Contender::output());
    }
    std::this_thread::sleep_for(kWarmUp);
    recorder.startWindow();
    const double cpu_before = contender.cpuSeconds();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const double cpu_s = contender.cpuSeconds() - cpu_before;
    const Window window = recorder.endWindow();
    if (window.payloads == 0) {
        throw std::runtime_error("the stream stopped; the program said:\n" + Contender::output());
    }
    StreamResult result = summarize(window, cpu_s, job.latency_ms);
    result.resident_mib = contender.residentMib();
    if (visit) {
        visit(contender);
    }
    return result;
}

}  // namespace bench
