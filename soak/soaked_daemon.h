// The daemon under soak over its many lives, with the settings that it should have and the
// ceilings of what it may hold.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sim/daemon.h"
#include "soak/settings.h"
#include "soak/soaked_unit.h"

// Threads: the main thread only.
// Errors:  std::runtime_error that says what went wrong: the run ends there.
class SoakedDaemon {
public:
    SoakedDaemon(SoakedUnit &soaked_unit, unsigned seed);
    ~SoakedDaemon();  // removes the settings' file system
    SoakedDaemon(const SoakedDaemon &) = delete;
    SoakedDaemon &operator=(const SoakedDaemon &) = delete;

    // A number below `limit`.
    unsigned roll(unsigned limit);
    // Two addresses by chance, not those in force.
    Settings drawSettings();

    sim::Daemon &process() { return *daemon; }
    void start();
    // Ends it in order and looks at the status and the time.
    void stopInOrder();
    void kill();

    // The file has to read as it does now or as `wanted` from now on.
    void expectEither(const Settings &wanted);
    [[nodiscard]] const Settings &settings() const { return newest; }
    // Through the API.
    void apply(const Settings &wanted);
    void writeByHand(const Settings &wanted);

    // Looks that the stream is there within `bound`. Returns the time that it took.
    std::chrono::milliseconds expectFlow(std::chrono::milliseconds bound);
    void expectWholeSettings() const;
    void expectNothingLeftBehind();
    // That no life has said what none may say.
    void expectCleanOutput() const;

    // Takes what it holds now for what it may hold at most.
    void raiseCeilings();
    // The same for memory alone, which needs longer to find its height.
    void raiseMemoryCeiling();
    [[nodiscard]] std::string ceilings() const;

private:
    SoakedUnit &unit;
    std::minstd_rand dice;
    Settings newest;
    std::vector<std::string> meanings;  // that the file may have
    std::unique_ptr<sim::Daemon> daemon;
    int most_descriptors = 0;
    int most_threads = 0;
    long most_resident_kb = 0;
};

inline constexpr const char *kSettingsDirectory = "/etc/sysconfig";
inline constexpr const char *kSettingsFile = "/etc/sysconfig/proxy.cfg";
