#include "sim/sandbox.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>

#include "sim/file_descriptor.h"
#include "sim/system_error.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

// Where a directory with entries of our own keeps the machine's, below itself.
constexpr const char *kMachineEntry = ".machine";
// Where a file system stands while it is filled: inside the first one that is ours.
constexpr const char *kStaging = "/media/.staging";

void mountOn(const fs::path &target, const char *source, const char *type, unsigned long flags,
             const char *settings = nullptr) {
    check(mount(source, target.c_str(), type, flags, settings), "mount on " + target.string());
}

void mountTmpfs(const fs::path &target, const char *settings) {
    mountOn(target, "tmpfs", "tmpfs", MS_NOSUID, settings);
}

void bind(const fs::path &source, const fs::path &target) {
    mountOn(target, source.c_str(), nullptr, MS_BIND | MS_REC);
}

void writeFile(const fs::path &path, const std::string &text) {
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    check(file.get(), "open " + path.string());
    check(write(file.get(), text.data(), text.size()), "write " + path.string());
}

void unshareAsNewRoot() {
    const auto uid = std::to_string(geteuid());
    const auto gid = std::to_string(getegid());
    check(unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET),
          "make user, mount and network namespaces (are unprivileged user namespaces allowed?)");
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + uid + " 1");
    writeFile("/proc/self/gid_map", "0 " + gid + " 1");
}

void unshareNamespaces() {
    if (geteuid() != 0 || unshare(CLONE_NEWNS | CLONE_NEWNET) != 0) {
        unshareAsNewRoot();
    }
}

// Lets no mount of ours reach another namespace. In a chroot "/" need not be a mount
// point, whose propagation alone can be set; entering our own mount namespace again
// leads to its true root, and the way back is held open.
void detachMounts() {
    const FileDescriptor root(open("/", O_PATH | O_CLOEXEC));
    const FileDescriptor own(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
    check(own.get(), "open /proc/self/ns/mnt");
    const fs::path working_directory = fs::current_path();
    check(setns(own.get(), CLONE_NEWNS), "reach the root of the mount namespace");
    mountOn("/", nullptr, nullptr, MS_REC | MS_PRIVATE);
    check(fchdir(root.get()), "go back to the root directory");
    check(chroot("."), "go back to the root directory");
    fs::current_path(working_directory);
}

bool liesBelow(const fs::path &path, const fs::path &directory) {
    const auto [end, rest] =
        std::mismatch(directory.begin(), directory.end(), path.begin(), path.end());
    return end == directory.end() && rest != path.end();
}

// A private file system for `directory`: filled at kStaging, where `fill` still sees the
// machine's directory at its own place, then moved over it.
void replaceDirectory(const fs::path &directory, const char *settings,
                      const std::function<void(const fs::path &staging)> &fill) {
    fs::create_directory(kStaging);
    mountTmpfs(kStaging, settings);
    fill(kStaging);
    mountOn(directory, kStaging, nullptr, MS_MOVE);
    fs::remove(kStaging);
}

void replaceMedia() {
    mountTmpfs("/media", "mode=755");
    fs::create_directories("/media/hd0/media");
}

void replaceTmp(std::vector<fs::path> keep) {
    const fs::path working_directory = fs::current_path();
    keep.insert(keep.end(), {TIDEWELL_SOURCE_DIR, TIDEWELL_BUILD_DIR, working_directory});
    std::sort(keep.begin(), keep.end());
    replaceDirectory("/tmp", "mode=1777", [&](const fs::path &staging) {
        for (const fs::path &path : keep) {
            const fs::path place = staging / path.lexically_relative("/tmp");
            // One that lies in another came with it.
            if (liesBelow(path, "/tmp") && fs::is_directory(path) && !fs::exists(place)) {
                fs::create_directories(place);
                bind(path, place);
            }
        }
    });
    if (fs::is_directory(working_directory)) {
        fs::current_path(working_directory);
    }
}

void fillDev(const fs::path &staging) {
    for (const char *name : {"null", "zero", "full", "random", "urandom", "tty", "pts"}) {
        const fs::path device = fs::path("/dev") / name;
        if (fs::is_directory(device)) {
            fs::create_directory(staging / name);
        } else if (fs::exists(device)) {
            writeFile(staging / name, "");
        } else {
            continue;
        }
        bind(device, staging / name);
    }
    fs::create_symlink("pts/ptmx", staging / "ptmx");
    fs::create_symlink("/proc/self/fd", staging / "fd");
    fs::create_symlink("/proc/self/fd/0", staging / "stdin");
    fs::create_symlink("/proc/self/fd/1", staging / "stdout");
    fs::create_symlink("/proc/self/fd/2", staging / "stderr");
    fs::create_directory(staging / "shm");
    mountTmpfs(staging / "shm", "mode=1777");
}

// A user namespace may not drop a restriction that the mount came with. These bits
// have the same places in the mount's report as in the request.
unsigned long restrictionsOf(const fs::path &path) {
    struct statvfs info {};
    check(statvfs(path.c_str(), &info), "statvfs " + path.string());
    return info.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC | ST_NOATIME | ST_NODIRATIME);
}

// Replaces `directory` by one whose entries, all but `own_names`, are links to the ones
// beneath. Overlay file systems would do the same, but not on every kernel and not over
// every root.
void mirrorDirectory(const fs::path &directory, const std::vector<std::string> &own_names) {
    replaceDirectory(directory, "mode=755", [&](const fs::path &staging) {
        const fs::path machine = staging / kMachineEntry;
        fs::create_directory(machine);
        bind(directory, machine);
        mountOn(machine, nullptr, nullptr,
                MS_REMOUNT | MS_BIND | MS_RDONLY | restrictionsOf(machine));
        for (const auto &entry : fs::directory_iterator(machine)) {
            const fs::path name = entry.path().filename();
            if (std::find(own_names.begin(), own_names.end(), name) == own_names.end()) {
                // A relative link holds only where it was made to stand.
                fs::create_symlink(entry.is_symlink() ? fs::read_symlink(entry.path())
                                                      : kMachineEntry / name,
                                   staging / name);
            }
        }
    });
}

void installRecordingProgram(const fs::path &path) {
    writeFile(path, std::string("#!/bin/sh\nprintf '%s\\n' \"$0 $*\" >>") + kCommandRecord + "\n");
    check(chmod(path.c_str(), 0755), "chmod " + path.string());
}

void replacePrograms() {
    const fs::path sbin = fs::canonical("/sbin");
    mirrorDirectory(sbin, {"shutdown", "reboot"});
    installRecordingProgram(sbin / "shutdown");
    installRecordingProgram(sbin / "reboot");
    mirrorDirectory("/usr/local/bin", {"cmd"});
    installRecordingProgram("/usr/local/bin/cmd");
}

void replaceSettings() {
    mirrorDirectory("/etc", {"cron.d", "hosts", "sysconfig"});
    writeFile("/etc/hosts", "127.0.0.1 localhost firmware.qorbi.example\n");
    fs::create_directory("/etc/cron.d");
    fs::create_directory("/etc/sysconfig");
    mirrorDirectory("/var/spool", {"cron"});
    fs::create_directories("/var/spool/cron/crontabs");
}

}  // namespace

void enterSandbox(const std::vector<fs::path> &keep) {
    unshareNamespaces();
    detachMounts();
    setNetwork(true);
    replaceMedia();
    replaceTmp(keep);
    replaceDirectory("/dev", "mode=755", fillDev);
    replacePrograms();
    replaceSettings();
}

void setNetwork(bool is_up) {
    const FileDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = is_up ? IFF_UP | IFF_RUNNING : 0;
    check(ioctl(control.get(), SIOCSIFFLAGS, &request), "switch the loopback interface");
}

std::vector<std::string> recordedCommands() {
    std::vector<std::string> commands;
    std::ifstream record(kCommandRecord);
    for (std::string line; std::getline(record, line);) {
        commands.push_back(line);
    }
    return commands;
}

}  // namespace sim
