#include "sim/sandbox.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

dev_t fileSystemOf(const fs::path &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_dev : 0;
}

TEST(Sandbox, WhatTheProductWritesToLiesOnPrivateFileSystems) {
    const dev_t machine = fileSystemOf("/usr");
    for (const char *path : {"/tmp", "/dev", "/media/hd0/media", "/etc/cron.d", "/etc/sysconfig",
                             "/var/spool/cron/crontabs", "/sbin", "/usr/local/bin"}) {
        SCOPED_TRACE(path);
        EXPECT_NE(fileSystemOf(path), machine);
        std::ofstream(fs::path(path) / "written-by-a-test") << "text";
        EXPECT_TRUE(fs::exists(fs::path(path) / "written-by-a-test"));
    }
}

TEST(Sandbox, MachineBehindAPrivateDirectoryCanBeReadOnly) {
    EXPECT_TRUE(std::ifstream("/etc/passwd").good());
    EXPECT_FALSE(std::ofstream("/etc/passwd", std::ios::app).is_open());
}

TEST(Sandbox, DangerousProgramsOnlyRecordTheirCommandLine) {
    ASSERT_EQ(std::system("/sbin/shutdown -r now; /sbin/reboot; /usr/local/bin/cmd DIT IP RESET"),
              0);

    EXPECT_EQ(sim::recordedCommands(),
              (std::vector<std::string>{"/sbin/shutdown -r now", "/sbin/reboot ",
                                        "/usr/local/bin/cmd DIT IP RESET"}));
}

TEST(Sandbox, OrdinaryDevicesAndProgramsWork) {
    EXPECT_EQ(std::system("head -c 8 /dev/urandom | tee /dev/null >/dev/shm/x && test -s /dev/shm/x"
                          " && ls /usr/sbin >/dev/null && ip -br address | grep -q 127.0.0.1"),
              0);
}

}  // namespace
