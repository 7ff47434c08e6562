// A machine of the unit's own, made of namespaces.
//
// The product reboots, edits crontabs, prunes /media and talks to devices that a
// development machine lacks. After enterSandbox() all of that happens to private
// file systems that vanish with the last process inside, and the network is a
// loopback that no other process shares, so that fixed ports never collide.
//
// What is the sandbox's own: /tmp, /dev (with null, zero, full, random, urandom, tty,
// ptmx, pts and an empty shm), /media, /var/spool/cron, /etc/cron.d, /etc/sysconfig,
// /etc/hosts (with the firmware server's name), shutdown and reboot in /sbin,
// /usr/local/bin/cmd. The three programs only append their command line to
// kCommandRecord. Other entries of the directories concerned are links to the
// machine's own, mounted read-only. There is no /dev/log: what the product sends to
// syslog shows on its stderr alone.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sim {

inline constexpr const char *kCommandRecord = "/dev/shm/unit_commands";

// Moves the calling process into the sandbox for good; children inherit it. The
// source tree, the build tree, the working directory and `keep` stay reachable at
// their own paths even where /tmp holds them. Anyone but root becomes root of a new
// user namespace first.
//
// Requires: the calling thread is the only one. /proc is mounted.
// Errors:   std::system_error that says which step failed and why; the process is
//           then half inside and should end.
void enterSandbox(const std::vector<std::filesystem::path> &keep = {});

// Takes the sandbox's whole network down, or brings it up again.
//
// Errors: std::system_error.
void setNetwork(bool is_up);

// The command lines that shutdown, reboot and cmd were called with, oldest first.
std::vector<std::string> recordedCommands();

}  // namespace sim
