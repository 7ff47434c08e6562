#include "soak/trouble.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "sim/http_client.h"
#include "sim/sandbox.h"
#include "soak/limits.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// How long a trouble stays.
void endure(SoakedDaemon &daemon, std::chrono::milliseconds longest) {
    std::this_thread::sleep_for(
        std::chrono::milliseconds(daemon.roll(static_cast<unsigned>(longest.count()))));
}

void everyFarEnd(SoakedUnit &unit, void (sim::SrtPeer::*act)()) {
    for (sim::SrtPeer *far_end : unit.farEnds()) {
        (far_end->*act)();
    }
}

// ---- Far ends

void hurtSomeFarEnd(SoakedDaemon &daemon, SoakedUnit &unit, void (sim::SrtPeer::*begin)(),
                    std::chrono::milliseconds longest, void (sim::SrtPeer::*end)()) {
    const std::vector<sim::SrtPeer *> far_ends = unit.farEnds();
    sim::SrtPeer &chosen = *far_ends[daemon.roll(static_cast<unsigned>(far_ends.size()))];
    (chosen.*begin)();
    endure(daemon, longest);
    (chosen.*end)();
}

void farEndLeaves(SoakedDaemon &daemon, SoakedUnit &unit) {
    hurtSomeFarEnd(daemon, unit, &sim::SrtPeer::breakOff, 3s, &sim::SrtPeer::restart);
}

void farEndVanishes(SoakedDaemon &daemon, SoakedUnit &unit) {
    hurtSomeFarEnd(daemon, unit, &sim::SrtPeer::vanish, 8s, &sim::SrtPeer::restart);
}

void farEndFreezes(SoakedDaemon &daemon, SoakedUnit &unit) {
    hurtSomeFarEnd(daemon, unit, &sim::SrtPeer::freeze, 8s, &sim::SrtPeer::thaw);
}

void farEndFallsSilent(SoakedDaemon &daemon, SoakedUnit &unit) {
    hurtSomeFarEnd(daemon, unit, &sim::SrtPeer::pause, 8s, &sim::SrtPeer::resume);
}

void allFarEndsVanish(SoakedDaemon &daemon, SoakedUnit &unit) {
    everyFarEnd(unit, &sim::SrtPeer::vanish);
    endure(daemon, 10s);
    everyFarEnd(unit, &sim::SrtPeer::restart);
}

// ---- Surroundings

void networkGoesDown(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    sim::setNetwork(false);
    endure(daemon, 8s);
    sim::setNetwork(true);
}

void neighbourGoes(SoakedDaemon &daemon, SoakedUnit &unit) {
    unit.loseNeighbour();
    endure(daemon, 4s);
    unit.bringNeighbourBack();
}

void tmpFillsUp(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    const fs::path filler = "/tmp/filler";
    {
        std::ofstream file(filler);
        const std::string block(4096, 'x');
        while (file << block << std::flush) {
        }
    }
    daemon.apply(daemon.drawSettings());  // has to log into it
    endure(daemon, 2s);
    fs::remove(filler);
}

void clientsCrowd(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    std::vector<sim::RawClient> idle;
    for (unsigned i = 0; i < 300; ++i) {
        idle.emplace_back(sim::kApiPort);
        switch (daemon.roll(4)) {
        case 0:
            idle.back().send(sim::requestText("/api/stats"));
            break;
        case 1:
            idle.back().send("POST /api/cfg/set HTTP/1.1\r\nContent-Length: 999\r\n\r\n{");
            break;
        case 2:
            idle.back().send(std::string(1000, '\x07'));
            break;
        default:
            break;
        }
    }
    if (sim::ask("/api/stats").status() != 200) {
        throw std::runtime_error("/api/stats was not answered in the crowd");
    }
}

// ---- Settings

void settingsAreApplied(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    daemon.apply(daemon.drawSettings());
}

void settingsAreAppliedInHaste(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    for (unsigned i = 0; i < 20; ++i) {
        daemon.apply(daemon.drawSettings());
    }
}

void sourceIsSelected(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    sim::ask("/api/source/set", "{\"index\":" + std::to_string(daemon.roll(2)) + "}");
}

void settingsAreEdited(SoakedDaemon &daemon, SoakedUnit &unit) {
    daemon.writeByHand(daemon.drawSettings());
    farEndLeaves(daemon, unit);
}

// What stands in the file meanwhile must not harm what is in force.
void fileIsSpoilt(SoakedDaemon &daemon, SoakedUnit &unit, const std::string &text) {
    const Settings before = daemon.settings();
    writeText(kSettingsFile, text);
    farEndLeaves(daemon, unit);
    daemon.writeByHand(before);
}

void fileIsGarbled(SoakedDaemon &daemon, SoakedUnit &unit) {
    std::string noise(daemon.roll(4000), '\0');
    for (char &byte : noise) {
        byte = static_cast<char>(daemon.roll(256));
    }
    fileIsSpoilt(daemon, unit, noise);
}

void fileIsCutOff(SoakedDaemon &daemon, SoakedUnit &unit) {
    const std::string text = daemon.settings().text();
    fileIsSpoilt(daemon, unit, text.substr(0, daemon.roll(static_cast<unsigned>(text.size()))));
}

void fileIsRemoved(SoakedDaemon &daemon, SoakedUnit &unit) {
    const Settings before = daemon.settings();
    fs::remove(kSettingsFile);
    farEndLeaves(daemon, unit);
    daemon.writeByHand(before);
}

// The new document is made too large for what is left.
void diskFillsUp(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    const fs::path filler = fs::path(kSettingsDirectory) / "filler";
    const Settings wanted = daemon.drawSettings();
    {
        std::ofstream file(filler);
        while (file << 'x' << std::flush) {
        }
    }
    daemon.expectEither(wanted);
    sim::ask("/api/cfg/set", wanted.text() + std::string(60'000, ' '));
    fs::remove(filler);
}

// ---- The daemon itself

void daemonIsRestarted(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    daemon.stopInOrder();
    daemon.start();
}

void daemonRestartsItself(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    sim::ask("/api/restart/set");
    if (daemon.process().waitForEnd(kOrderlyEnd) != 0) {
        throw std::runtime_error("/api/restart/set brought no orderly end");
    }
    daemon.start();
}

void daemonIsKilledWhileSaving(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    const Settings wanted = daemon.drawSettings();
    daemon.expectEither(wanted);
    sim::RawClient client(sim::kApiPort);
    client.send(sim::requestText("/api/cfg/set", wanted.text()));
    std::this_thread::sleep_for(std::chrono::microseconds(daemon.roll(3000)));
    daemon.kill();
    daemon.start();
}

void daemonIsHeldUp(SoakedDaemon &daemon, SoakedUnit & /*unit*/) {
    daemon.process().signal(SIGSTOP);
    endure(daemon, 8s);
    daemon.process().signal(SIGCONT);
}

constexpr Trouble kTroubles[] = {
    {"a far end leaves", farEndLeaves, kNextAddress},
    {"a far end vanishes", farEndVanishes, kNoSignOfLife},
    {"a far end freezes", farEndFreezes, kNoSignOfLife},
    {"a far end falls silent", farEndFallsSilent, kReopening},
    {"all far ends vanish", allFarEndsVanish, kNoSignOfLife},
    {"the network goes down", networkGoesDown, kNoSignOfLife},
    {"the daemon's neighbour goes", neighbourGoes, kReopening},
    {"/tmp fills up", tmpFillsUp, kReopening},
    {"clients crowd", clientsCrowd, kReopening},
    {"settings are applied", settingsAreApplied, kReopening},
    {"settings are applied in haste", settingsAreAppliedInHaste, kReopening},
    {"the source is selected", sourceIsSelected, kNextAddress},
    {"the file is edited by hand", settingsAreEdited, kNextAddress},
    {"the file is garbled", fileIsGarbled, kNextAddress},
    {"the file is cut off", fileIsCutOff, kNextAddress},
    {"the file is removed", fileIsRemoved, kNextAddress},
    {"the disk fills up", diskFillsUp, kReopening},
    {"the daemon is restarted", daemonIsRestarted, kReopening},
    {"the daemon restarts itself", daemonRestartsItself, kReopening},
    {"the daemon is killed while saving", daemonIsKilledWhileSaving, kNoSignOfLife},
    {"the daemon is held up", daemonIsHeldUp, kNoSignOfLife},
};

}  // namespace

std::span<const Trouble> allTroubles() {
    return kTroubles;
}
