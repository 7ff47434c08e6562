// The entry point: owns every long-lived object, makes them in order and takes them
// down in order. Everything else is in the objects.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <malloc.h>
#include <pthread.h>
#include <sched.h>
#include <srt/srt.h>

#include "api/api_handler.h"
#include "config/config_store.h"
#include "core/shared/log_ring.h"
#include "core/shared/shared_words.h"
#include "core/shared/system_log.h"
#include "core/standard_streams.h"
#include "core/stream_pump.h"
#include "device/route_device.h"
#include "endpoints/file_input.h"
#include "endpoints/payload.h"
#include "endpoints/stats_document.h"
#include "endpoints/udp_output.h"
#include "tools/packed_assets.h"

namespace {

constexpr std::size_t kLogLines = 100;
constexpr const char *kDefaultConfigPath = "/etc/sysconfig/proxy.cfg";
constexpr const char *kUnitAddress = "127.0.0.1";
constexpr int kUnitPort = 9261;
constexpr int kRouteNumber = 3;
constexpr std::size_t kBufferBytes = std::size_t{1000} * kPayloadBytes;

struct FreeBuffer {
    void operator()(void *buffer) const { free(buffer); }
};

// Keeps libsrt started.
struct SrtLibrary {
    SrtLibrary() {
        if (srt_startup() == SRT_ERROR) {
            systemLog(LOG_ERR, "Could not start the SRT library: %s", srt_getlasterror_str());
            throw 1;
        }
        // Else libsrt writes a line at every receive that times out.
        srt_setloglevel(LOG_CRIT);
    }
    ~SrtLibrary() { srt_cleanup(); }
    SrtLibrary(const SrtLibrary &) = delete;
    SrtLibrary &operator=(const SrtLibrary &) = delete;
};

// All that lives as long as the process. shutDown() ends it in the one right order.
struct Process {
    StatsDocument stats;
    LogRing log{kLogLines};
    std::string config_path;
    ChangeFlag change_flag{0};
    CurrentIdx current_idx;
    bool packed = true;
    bool encoder = false;
    bool thumbnails = false;
    std::unique_ptr<ConfigStore> store;
    std::unique_ptr<SrtLibrary> srt;
    std::unique_ptr<ApiHandler> api;
    std::unique_ptr<char, FreeBuffer> buffer;
    std::unique_ptr<RouteDevice> route;        // encoder family only
    std::unique_ptr<file_input_t> file_input;  // encoder family only
    std::unique_ptr<udp_output_t> udp_output;  // decoder family only
};

void raiseStopFlag(int) {
    stop_flag = 1;
}

// Also where the starter has blocked them.
void installStopSignals() {
    struct sigaction action {};
    action.sa_handler = raiseStopFlag;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
    sigset_t needed;
    sigemptyset(&needed);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) {  // the last ends long reads
        sigaddset(&needed, number);
    }
    pthread_sigmask(SIG_UNBLOCK, &needed, nullptr);
}

// libsrt's buffers are large and live as long as a connection. glibc would take the
// first one that is freed as a reason to keep all later ones; this way each goes back
// to the system, and a unit that many clients have visited is as small as a new one.
void giveLargeMemoryBack() {
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

bool isEncoder(const char *product) {
    return product != nullptr && strncmp(product, "WQ", 2) != 0;
}

// Units of this product encode without offering an encoder's thumbnail.
bool hasThumbnails(const char *product) {
    return isEncoder(product) && strcmp(product, "WX-2ZZ") != 0;
}

void readEnvironment(Process &process) {
    const char *config_path = getenv("PROXY_CFG");
    process.config_path = config_path != nullptr ? config_path : kDefaultConfigPath;
    process.packed = getenv("PROXY_USE_FS") == nullptr;
    const char *product = getenv("PRODUCT");
    process.encoder = isEncoder(product);
    process.thumbnails = hasThumbnails(product);
}

void makeUnitEnds(Process &process) {
    if (process.encoder) {
        process.log.logLine("WX family detected\n");
        process.route = std::make_unique<RouteDevice>(kRouteNumber);
        process.file_input = std::make_unique<file_input_t>(process.route->ingressPath());
    } else {
        process.log.logLine("WQ family detected\n");
        process.udp_output = std::make_unique<udp_output_t>(kUnitAddress, kUnitPort);
    }
}

void startApi(Process &process) {
    process.api = std::make_unique<ApiHandler>(ApiParts{.store = process.store.get(),
                                                        .change_flag = &process.change_flag,
                                                        .thumbnails = process.thumbnails,
                                                        .packed = process.packed,
                                                        .current_idx = &process.current_idx,
                                                        .stats = &process.stats,
                                                        .route_device = process.route.get(),
                                                        .assets = {assetContent, assetName}});
}

void allocateBuffer(Process &process) {
    process.buffer.reset(static_cast<char *>(malloc(kBufferBytes)));
    if (!process.buffer) {
        systemLog(LOG_ERR, "No memory for the read buffer");
        throw 1;
    }
}

// For this thread alone: the threads that it starts fall back to the ordinary policy,
// which spares the core for libsrt's share of the work.
void requestRealTime() {
    puts("Setting RR scheduler");
    sched_param parameters{};
    parameters.sched_priority = sched_get_priority_max(SCHED_RR);
    pthread_setschedparam(pthread_self(), SCHED_RR | SCHED_RESET_ON_FORK, &parameters);
}

void startUp(Process &process) {
    process.log.logLine("Startup\n");
    readEnvironment(process);
    makeUnitEnds(process);
    process.srt = std::make_unique<SrtLibrary>();
    process.store = std::make_unique<ConfigStore>(process.config_path);
    startApi(process);
    allocateBuffer(process);
    if (process.encoder) {
        requestRealTime();
    }
}

void runPump(Process &process) {
    StreamPump pump({.log = &process.log,
                     .store = process.store.get(),
                     .stats = &process.stats,
                     .change_flag = &process.change_flag,
                     .current_idx = &process.current_idx,
                     .buffer = process.buffer.get(),
                     .buffer_bytes = kBufferBytes,
                     .udp_output = process.udp_output.get(),
                     .file_input = process.file_input.get()});
    pump.run();
}

void shutDown(Process &process) {
    process.api.reset();
    process.udp_output.reset();
    process.file_input.reset();
    process.route.reset();
    process.buffer.reset();
    process.srt.reset();
    puts("main exit");
    process.store.reset();
}

// The exit status.
int live() {
    Process process;
    int status = 0;
    try {
        startUp(process);
        runPump(process);
    } catch (...) {  // only a start throws, and its steps have said what failed
        if (stop_flag == 0) {
            systemLog(LOG_ERR, "Start-up failed");
            status = 1;
        }
    }
    shutDown(process);
    return status;
}

}  // namespace

int main() {
    prepareStandardStreams();
    giveLargeMemoryBack();
    installStopSignals();
    try {
        return live();
    } catch (const std::bad_alloc &) {  // not even for the log
        fputs("No memory to start with\n", stderr);
        return 1;
    }
}
