#include "device/route_device.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <new>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/route_driver.h"
#include "sim/wait_until.h"
#include "tests/support/files.h"
#include "tests/support/printed.h"

namespace {
thread_local bool memory_is_left = true;
}

// Take the C++ library's place.
[[gnu::noinline]] void *operator new(std::size_t size) {
    void *const memory = memory_is_left ? malloc(size) : nullptr;
    return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
    free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
    free(memory);
}

namespace {

const std::string kUp = std::string("service 3 active=1 cbr=0 drop=all add=all ethdev=eth1 "
                                    "ipdaddr=0.0.0.0 udpdport=2000 fpkts=7 rttype=usr cbr=0 "
                                    "ipttl=7 iptos=0  rtp=0 fpkts=7") +
                        '\0';
const std::string kDown =
    "service 3 active=0 cbr=0 pat=0 drop=all ethdev=eth1 ethsrc=00:00:00:00:00:00 "
    "ethdst=00:00:00:00:00:00 ipsaddr=0.0.0.0 ipdaddr=0.0.0.0 udpsport=2000 udpdport=2000 "
    "fpkts=7 rttype=eth";

class RouteDeviceTest : public testing::Test {
protected:
    // The commands so far, once there are `count`.
    std::vector<std::string> commands(std::size_t count) {
        sim::waitUntil([&] { return driver.commands().size() >= count; });
        std::vector<std::string> texts;
        for (const auto &command : driver.commands()) {
            texts.push_back(command.bytes);
        }
        return texts;
    }

    sim::RouteDriver driver;
};

TEST_F(RouteDeviceTest, RouteGoesUpAtTheStartAndDownAtTheEnd) {
    const std::string told = printedBy([&] {
        const RouteDevice route(3);
        EXPECT_EQ(route.ingressPath(), "/dev/rt_ingress4");
        EXPECT_EQ(commands(1), std::vector{kUp});
    });
    EXPECT_EQ(told, "tidewell: Updating route 3\n");
    EXPECT_EQ(commands(2), (std::vector{kUp, kDown}));
}

TEST_F(RouteDeviceTest, RouteGoesDownWhereNoMemoryIsLeft) {
    std::optional<RouteDevice> route(3);
    memory_is_left = false;
    route.reset();
    memory_is_left = true;
    EXPECT_EQ(commands(2).back(), kDown);
}

TEST_F(RouteDeviceTest, LostRouteIsSentAgain) {
    const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowest);
    const RouteDevice route(3);
    const std::tuple<const char *, const char *, bool> rows[] = {
        {"route alone", "[0003] usr\n", false},
        {"route among others", "[0001] eth\n[0003]\n[0004] eth\n", false},
        {"route without line end", "[0001]\n[0003]", false},
        {"others only", "[0001] eth\n[0030] usr\n", true},
        {"not at the line's beginning", " [0003] usr\n", true},
        {"empty", "", true},
    };
    std::size_t sent = commands(1).size();
    for (const auto &[name, report, sends] : rows) {
        writeFile("/dev/rt_stat", report);
        route.ensureRoute();
        sent += sends ? 1 : 0;
        EXPECT_EQ(commands(sent).size(), sent) << name;
    }
    std::filesystem::remove("/dev/rt_stat");
    route.ensureRoute();
    EXPECT_EQ(commands(sent + 1).size(), sent + 1);
    EXPECT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), lowest)
        << "a command leaves its device open";
}

TEST(RouteDeviceWithoutDriver, HalfACommandIsOnlyToldGoingDown) {
    const std::string told = printedBy([] {
        const RouteDevice route(3);
        std::filesystem::create_symlink("/dev/full", "/dev/rt_cmd");
    });
    EXPECT_EQ(told, "encoder not on this plat\nWrite error2\n");
}

}  // namespace
