// How the process starts, which family it becomes, and how it ends.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "sim/file_descriptor.h"
#include "sim/http_client.h"
#include "sim/route_driver.h"
#include "sim/route_ingress.h"
#include "sim/shimmed_daemon.h"
#include "sim/srt_receiver.h"
#include "sim/srt_sender.h"
#include "sim/system_error.h"
#include "sim/udp_sink.h"
#include "tests/support/files.h"
#include "tests/support/stop_limit.h"

namespace {

using namespace std::chrono_literals;
using namespace sim;
namespace fs = std::filesystem;

TEST(Lifecycle, EachStopSignalEndsItInOrderWithinAShortTime) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(number);
        Daemon daemon({});
        ASSERT_TRUE(daemon.waitForLine("SRT open failed"));
        daemon.signal(number);
        daemon.signal(SIGTERM);  // a second one changes nothing
        EXPECT_EQ(daemon.waitForEnd(kStopLimit), 0);
        EXPECT_EQ(daemon.countLines("main exit"), 1);
    }
}

TEST(Lifecycle, ProductDecidesTheFamily) {
    const struct {
        std::optional<std::string> product;
        bool encoder;
    } rows[] = {{std::nullopt, false}, {"WQ", false},  {"WQ-9", false},  {"", true}, {"W", true},
                {"wq", true},          {"WX-1", true}, {"WX-2ZZ", true}, {"Q", true}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.product.value_or("(unset)"));
        Daemon daemon({.product = row.product});
        if (row.encoder) {  // there is no driver here
            EXPECT_EQ(daemon.waitForEnd(), 1);
            EXPECT_EQ(daemon.standardError(), "tidewell: Startup\ntidewell: WX family detected\n"
                                              "file not found: /dev/rt_ingress4"
                                              "tidewell: Start-up failed\n");
            EXPECT_EQ(daemon.countLines("encoder not on this plat"), 1);
            EXPECT_EQ(daemon.countLines("main exit"), 1);
        } else {
            EXPECT_TRUE(daemon.waitForLine("WQ family detected"));
            EXPECT_TRUE(daemon.waitForLine("SRT open failed: srt://"));
        }
    }
}

TEST(Lifecycle, SettingsPathIsTheDefaultOrWhatTheEnvironmentSaysEvenIfEmpty) {
    writeFile("/etc/sysconfig/proxy.cfg", sim::configDocument("srt://from.default:1", ""));
    {
        Daemon daemon({.write_config = false});
        EXPECT_TRUE(daemon.waitForLine("SRT open failed: srt://from.default:1"));
    }
    Daemon daemon({.env = {"PROXY_CFG="}, .write_config = false});
    EXPECT_TRUE(daemon.waitForLine("SRT open failed: srt://"));
    EXPECT_EQ(daemon.countLines("from.default"), 0);
}

TEST(Lifecycle, StartFailsInOrderWhereItCannotGoOn) {
    if (!kShimWorks) {
        GTEST_SKIP() << "the shim does not go with this sanitizer";
    }
    const struct {
        const char *name, *message;
        std::function<void(CallShim &)> arm;
        int orderly_ends = 1;
    } rows[] = {
        {"log", "No memory to start with", [](CallShim &shim) { shim.fail_in[kShimMalloc] = 1; },
         0},
        {"read buffer", "No memory for the read buffer",
         [](CallShim &shim) { shim.fail_malloc_of = 1'316'000; }},
        {"unit's socket", "### Unable to create socket: Too many open files",
         [](CallShim &shim) { shim.fail_in[kShimSocket] = 3; }},
        {"API thread", "Could not start the API thread: Resource temporarily unavailable",
         [](CallShim &shim) { shim.fail_in[kShimOwnThread] = 1; }},
        {"SRT library", "Could not start the SRT library",
         [](CallShim &shim) { shim.fail_in[kShimSrtStartup] = 1; }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ShimmedDaemon daemon({.env = {}}, row.arm);
        EXPECT_EQ(daemon->waitForEnd(), 1);
        EXPECT_EQ(daemon->countLines(row.message), 1);
        EXPECT_EQ(daemon->countLines("main exit"), row.orderly_ends);
    }
}

// Two ends of something that waits for its reader, full of what nobody has read.
struct Stuck {
    explicit Stuck(const std::array<int, 2> &ends) : read_end(ends[0]), write_end(ends[1]) {
        fcntl(read_end.get(), F_SETFL, O_NONBLOCK);
        fcntl(write_end.get(), F_SETFL, O_NONBLOCK);
        while (write(write_end.get(), "filler", 6) == 6) {
        }
        fcntl(write_end.get(), F_SETFL, 0);
    }

    // All that can be read by now.
    std::string emptied() const {
        std::string text;
        char block[4096];
        for (ssize_t count = 0; (count = read(read_end.get(), block, sizeof block)) > 0;) {
            text.append(block, static_cast<std::size_t>(count));
        }
        return text;
    }

    const FileDescriptor read_end, write_end;
};

std::array<int, 2> pipeEnds() {
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC), "make a pipe");
    return ends;
}

std::array<int, 2> socketEnds(int type) {
    std::array<int, 2> ends{};
    check(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends.data()), "make a socket pair");
    return ends;
}

std::array<int, 2> terminalEnds() {
    const int master = check(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "make a terminal");
    grantpt(master);
    unlockpt(master);
    return {master, check(open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC), "open it")};
}

// The system's logger, which takes nothing.
FileDescriptor stuckLogger() {
    FileDescriptor logger(check(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "make a logger"));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    check(bind(logger.get(), generic, sizeof address), "bind the logger");
    const FileDescriptor client(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    while (sendto(client.get(), "filler", 6, 0, generic, sizeof address) == 6) {
    }
    return logger;
}

// What the starter may have done to the standard streams must not reach the stream, and an
// output that takes something again gets what is said from then on.
TEST(Lifecycle, ClosedFullOrStuckOutputsDoNotStopTheStream) {
    fs::create_directory("/tmp/full");
    ASSERT_EQ(mount("none", "/tmp/full", "tmpfs", 0, "size=8k"), 0);
    writeFile("/tmp/full/rest", std::string(8192, 'x'));
    const FileDescriptor logger = stuckLogger();
    const Stuck pipe(pipeEnds()), socket(socketEnds(SOCK_STREAM)), terminal(terminalEnds());
    const auto broken = pipeEnds();
    close(broken[0]);
    const auto both = [](int fd) { return [fd] { dup2(fd, 1), dup2(fd, 2); }; };
    const struct {
        const char *name;
        std::function<void()> prepare, give_room;
        std::function<std::string()> said;
    } rows[] = {
        {"all three closed", [] { close(0), close(1), close(2); }, {}, {}},
        {"pipe without a reader", both(broken[1]), {}, {}},
        {"full disk",
         [] {
             const int full = open("/tmp/full/out", O_WRONLY | O_CREAT | O_APPEND, 0600);
             dup2(full, 1), dup2(full, 2);
         },
         [] { fs::remove("/tmp/full/rest"); }, [] { return readFile("/tmp/full/out"); }},
        {"pipe that nobody empties", both(pipe.write_end.get()), [&] { pipe.emptied(); },
         [&] { return pipe.emptied(); }},
        {"socket that nobody reads", both(socket.write_end.get()), [&] { socket.emptied(); },
         [&] { return socket.emptied(); }},
        {"terminal that stands still", both(terminal.write_end.get()), [&] { terminal.emptied(); },
         [&] { return terminal.emptied(); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        SrtSender sender(5000);
        UdpSink unit;
        Daemon daemon({.primary = sender.uri(), .before_exec = row.prepare});
        EXPECT_TRUE(unit.received().grow());
        EXPECT_EQ(ask("/api/cfg/set", std::string(400'000, '{')).status(), 200);
        EXPECT_TRUE(waitUntil([&] { return sender.connectionsMade() == 2; }));
        EXPECT_TRUE(unit.received().grow());
        if (row.give_room) {
            row.give_room();
        }
        EXPECT_EQ(daemon.stop(kStopLimit), 0);
        if (row.said) {
            EXPECT_NE(row.said().find("main exit"), std::string::npos);
        }
    }
}

TEST(Lifecycle, StreamRunsWithoutStatisticsWhenTheirThreadCannotStart) {
    if (!kShimWorks) {
        GTEST_SKIP() << "the shim does not go with this sanitizer";
    }
    sim::SrtSender sender(5000);
    sim::UdpSink unit;
    ShimmedDaemon daemon({.primary = sender.uri()},
                         [](CallShim &shim) { shim.fail_in[kShimOwnThread] = 2; });
    EXPECT_TRUE(unit.received().grow());
    EXPECT_EQ(daemon->countLines(": Stats thread could not be started"), 2);
    EXPECT_EQ(daemon->countLines("mon_thread_entry"), 0);
    EXPECT_EQ(daemon->stop(kStopLimit), 0);
}

// While `moved` grows by 600, nothing of the kind is counted on the main thread. libsrt may
// still be giving its buffers their size, so not every 600 need be so.
void expectBarePath(const CallShim &shim, const std::function<std::uint64_t()> &moved) {
    const auto counted = [&] {
        return std::pair(shim.main_allocations.load(), shim.own_main_locks.load());
    };
    ASSERT_TRUE(waitUntil([&] { return moved() > 100; }));
    EXPECT_GT(counted().first, 0U) << "the shim counts nothing";
    EXPECT_GT(counted().second, 0U) << "the shim counts nothing";
    const auto locks = counted().second;
    EXPECT_TRUE(waitUntil(
        [&] {
            const auto before = counted();
            const std::uint64_t start = moved();
            return waitUntil([&] { return moved() > start + 600; }) && counted() == before;
        },
        20s));
    EXPECT_EQ(counted().second, locks);
}

TEST(Lifecycle, StreamPathAllocatesNothingAndTakesNoLockOfOurs) {
    if (!kShimWorks) {
        GTEST_SKIP() << "the shim does not go with this sanitizer";
    }
    {
        sim::SrtSender sender(5000);
        sim::UdpSink unit;
        ShimmedDaemon decoder({.primary = sender.uri()});
        expectBarePath(*decoder.shim, [&] { return unit.datagrams(); });
    }
    sim::RouteDriver driver;
    sim::RouteIngress ingress;
    sim::SrtReceiver far_end(5000);
    ShimmedDaemon encoder({.primary = far_end.uri(), .product = "WX-1"});
    expectBarePath(*encoder.shim, [&] { return far_end.received().messages.load(); });
}

}  // namespace
