#include "sim/route_ingress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "sim/pacer.h"
#include "sim/system_error.h"
#include "sim/wait_until.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr auto kIdle = 2ms;
constexpr auto kFullFor = 500ms;
constexpr int kStopCheckMs = 50;
constexpr int kPipeBytes = 1024 * 1024;  // the most that anyone may ask for

// A reader that goes away must cost a failed write, not the process.
void blockPipeSignal() {
    sigset_t pipe_signal;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr);
}

}  // namespace

RouteIngress::RouteIngress(const IngressOptions &ingress_options)
    : options(ingress_options), generator(options.source_id, options.rate_bps),
      is_paused(options.paused) {
    check(mkfifo(kIngressDevice, 0666), std::string("make ") + kIngressDevice);
    thread = std::thread([this] { run(); });
}

RouteIngress::~RouteIngress() {
    stop = true;
    thread.join();
    std::remove(kIngressDevice);
}

bool RouteIngress::floodUntilFull() {
    floods = true;
    return waitUntil([this] {
        const std::uint64_t before = written_pieces;
        std::this_thread::sleep_for(kFullFor);
        return written_pieces == before;
    });
}

void RouteIngress::run() {
    blockPipeSignal();
    prctl(PR_SET_TIMERSLACK, 1);
    Pacer pacer(options.rate_bps);
    while (!stop) {
        const bool usable = openDevice();
        if (usable && floods) {
            writePiece();
            pacer.restart();
        } else if (usable && !is_paused) {
            std::this_thread::sleep_until(pacer.next(options.piece_bytes));
            writePiece();
        } else {
            std::this_thread::sleep_for(kIdle);
            pacer.restart();
        }
    }
}

// Opens or closes the device as ordered; false while there is none to write to.
bool RouteIngress::openDevice() {
    if (is_ended) {
        device.reset();
    } else if (!device.isOpen()) {
        // Fails until a reader is there, and does not wait for it.
        device = FileDescriptor(open(kIngressDevice, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (device.isOpen()) {
            fcntl(device.get(), F_SETPIPE_SZ, kPipeBytes);
        }
    }
    is_open = device.isOpen();
    return is_open;
}

void RouteIngress::writePiece() {
    std::vector<std::uint8_t> piece(options.piece_bytes);
    generator.fillBytes(piece.data(), piece.size());
    for (std::size_t done = 0; done < piece.size() && !stop;) {
        const ssize_t count = write(device.get(), piece.data() + done, piece.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            pollfd room{device.get(), POLLOUT, 0};
            poll(&room, 1, kStopCheckMs);
        } else {
            device.reset();
            return;
        }
    }
    ++written_pieces;
}

IngressFile::IngressFile(std::size_t bytes, std::uint32_t source_id)
    : generator(source_id, 4'000'000),
      file(check(open(kIngressDevice, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0666),
                 std::string("make ") + kIngressDevice)) {
    append(bytes);
}

IngressFile::~IngressFile() {
    std::remove(kIngressDevice);
}

void IngressFile::append(std::size_t bytes) {
    std::vector<std::uint8_t> stream(bytes);
    generator.fillBytes(stream.data(), bytes);
    check(write(file.get(), stream.data(), bytes), "fill the ingress device");
}

}  // namespace sim
