#include "bench/idle_run.h"

#include <chrono>
#include <memory>
#include <thread>

#include "bench/far_ends.h"
#include "bench/stamped_socket.h"
#include "bench/stream_run.h"
#include "sim/wait_until.h"

namespace bench {
namespace {

constexpr auto kConnectLimit = std::chrono::seconds(15);
constexpr auto kSettle = std::chrono::seconds(3);  // until the start has passed
constexpr auto kSilence = std::chrono::milliseconds(300);
constexpr auto kWakeLimit = std::chrono::seconds(5);

// Connected and silent, whichever direction the job has.
struct SilentPeer {
    explicit SilentPeer(const Job &job) {
        const Role far_role = opposite(job.role);
        if (job.encoder) {
            receiver =
                std::make_unique<SrtReceiver>(far_role, job.port, job.latency_ms, nothing_comes);
        } else {
            sender = std::make_unique<SrtSender>(far_role, job.port, job.latency_ms, 0);
        }
    }

    void awaitConnection() const {
        const auto connected = [&] {
            return receiver ? receiver->isConnected() : sender->isConnected();
        };
        if (!sim::waitUntil(connected, kConnectLimit)) {
            Contender::fail("no connection");
        }
    }

    Recorder nothing_comes;
    std::unique_ptr<SrtReceiver> receiver;
    std::unique_ptr<SrtSender> sender;
};

// The program opens the device before it ends, and finds nothing in it from then on.
std::unique_ptr<FifoWriter> makeDevice(Device device) {
    return device == Device::none ? nullptr : std::make_unique<FifoWriter>(0);
}

}  // namespace

std::vector<IdleState> idleStates(bool encoder) {
    const Job calling{.encoder = encoder, .role = Role::caller};
    const Job listening{.encoder = encoder, .role = Role::listener};
    if (!encoder) {
        return {{"decoder calling, nobody answers", calling},
                {"decoder listening, no client", listening},
                {"decoder listening, client silent", listening, true},
                {"decoder connected as caller, peer silent", calling, true}};
    }
    return {
        {"encoder calling, nobody answers", calling, false, Device::silent},
        {"encoder listening, device silent", listening, false, Device::silent},
        {"encoder connected as caller, device silent", calling, true, Device::silent},
        {"encoder connected as caller, device answers with nothing", calling, true, Device::ended},
        {"encoder listening, device answers with nothing", listening, false, Device::ended}};
}

double idleShare(const IdleState &state, double seconds) {
    Job job = state.job;
    job.port = freshPort();
    const auto device = makeDevice(state.device);
    const auto peer = state.peer ? std::make_unique<SilentPeer>(job) : nullptr;
    const Contender contender(Program::daemon, job);
    if (peer) {
        peer->awaitConnection();
    }
    std::this_thread::sleep_for(kSettle);
    if (state.device == Device::ended) {
        device->closeDevice();
    }
    const double before = contender.cpuSeconds();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return (contender.cpuSeconds() - before) / seconds;
}

std::vector<double> wakeDelays(Device silence, int times) {
    const Job job{.encoder = true, .role = Role::caller, .port = freshPort()};
    FifoWriter device(0);
    const SilentPeer peer(job);
    const Contender contender(Program::daemon, job);
    peer.awaitConnection();
    Recorder recorder;
    const StampedSocket tap(openWireTap(), kWireTapHeader, recorder);
    std::vector<double> delays_us;
    for (int i = 0; i < times; ++i) {
        if (silence == Device::ended) {
            device.closeDevice();
        }
        std::this_thread::sleep_for(kSilence);
        if (silence == Device::ended) {
            device.openDevice();
        }
        device.writeUnit();
        if (!sim::waitUntil([&] { return recorder.payloads() > 0; }, kWakeLimit)) {
            Contender::fail("data after a silence did not leave");
        }
        delays_us.push_back(recorder.endWindow().delayUs(0));
    }
    return delays_us;
}

}  // namespace bench
