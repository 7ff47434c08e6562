#include "bench/far_ends.h"

#include <array>
#include <chrono>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include "bench/stamp.h"
#include "sim/clock.h"
#include "sim/system_error.h"

namespace bench {
namespace {

constexpr int kPipeBytes = 1 << 20;
constexpr auto kIdlePause = std::chrono::milliseconds(20);
// A listening daemon takes its client up to a second after it came. What is sent before
// fills its receive buffer at 100 Mbit/s, which libsrt now and then does not get over.
constexpr auto kUntilAccepted = std::chrono::milliseconds(1500);

// Else the kernel rounds each sleep of this thread up by 50 microseconds.
void wakePunctually() {
    prctl(PR_SET_TIMERSLACK, 1UL);
}

}  // namespace

SrtSender::SrtSender(Role role, int port, int latency_ms, std::uint64_t rate_mbit)
    : far(role, port, latency_ms), calls(role == Role::caller), rate(rate_mbit),
      worker([this] { run(); }) {}

SrtSender::~SrtSender() {
    stop = true;
    worker.join();
}

void SrtSender::run() {
    wakePunctually();
    while (far.meet(stop)) {
        connected = true;
        if (calls) {
            std::this_thread::sleep_for(kUntilAccepted);
        }
        if (rate == 0) {
            keepSilent();
        } else {
            send();
        }
    }
}

void SrtSender::keepSilent() const {
    while (!stop) {
        std::this_thread::sleep_for(kIdlePause);
    }
}

// Until the connection breaks.
void SrtSender::send() {
    Payload payload{};
    for (Metronome metronome(rate); !stop; ++sequence) {
        metronome.wait();
        putStamp(payload, {sequence, sim::monotonicNs()});
        if (srt_send(far.get(), payload.data(), static_cast<int>(payload.size())) == SRT_ERROR) {
            return;
        }
    }
}

SrtReceiver::SrtReceiver(Role role, int port, int latency_ms, Recorder &into)
    : far(role, port, latency_ms), recorder(into), worker([this] { run(); }) {}

SrtReceiver::~SrtReceiver() {
    stop = true;
    worker.join();
}

void SrtReceiver::run() {
    while (far.meet(stop)) {
        connected = true;
        receive();
    }
}

// Until the connection breaks.
void SrtReceiver::receive() {
    std::array<char, 1500> message{};
    while (!stop) {
        const int bytes = srt_recvmsg(far.get(), message.data(), static_cast<int>(message.size()));
        if (bytes > 0) {
            recorder.take(message.data(), static_cast<std::size_t>(bytes), sim::monotonicNs());
        } else if (srt_getlasterror(nullptr) != SRT_EASYNCRCV &&
                   srt_getlasterror(nullptr) != SRT_ETIMEOUT) {
            return;
        }
    }
}

FifoWriter::FifoWriter(std::uint64_t rate_mbit) {
    openDevice();
    if (rate_mbit > 0) {
        worker = std::thread([this, rate_mbit] { run(rate_mbit); });
    }
}

FifoWriter::~FifoWriter() {
    stop = true;
    if (worker.joinable()) {
        worker.join();
    }
}

void FifoWriter::run(std::uint64_t rate_mbit) {
    wakePunctually();
    for (Metronome metronome(rate_mbit); !stop;) {
        metronome.wait();
        writeUnit();
    }
}

void FifoWriter::writeUnit() {
    Payload payload{};
    putStamp(payload, {sequence, sim::monotonicNs()});
    [[maybe_unused]] const ssize_t written = write(fd.get(), payload.data(), payload.size());
    ++sequence;
}

void FifoWriter::closeDevice() {
    fd.reset();
}

// For reading and writing, so that it opens whether or not a reader is there.
void FifoWriter::openDevice() {
    if (mkfifo(kDevicePath, 0600) == -1 && errno != EEXIST) {
        sim::throwErrno(kDevicePath);
    }
    fd = sim::FileDescriptor(
        sim::check(open(kDevicePath, O_RDWR | O_NONBLOCK | O_CLOEXEC), kDevicePath));
    fcntl(fd.get(), F_SETPIPE_SZ, kPipeBytes);
}

}  // namespace bench
