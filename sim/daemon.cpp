#include "sim/daemon.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "sim/file_descriptor.h"
#include "sim/system_error.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

int nextNumber() {
    static int count = 0;
    return ++count;
}

std::string readAll(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeAll(const fs::path &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    if (!file.flush()) {
        throwErrno("write " + path.string());
    }
}

int countIn(const std::string &output, const std::string &text) {
    std::istringstream lines(output);
    int count = 0;
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

std::string slotDocument(int index, const std::string &uri) {
    return "{ \"idx\" : " + std::to_string(index) + ", \"uri\" : \"" +
           (uri.empty() ? "srt://" : uri) + "\", \"enable\" : " + (uri.empty() ? "false" : "true") +
           " }";
}

fs::path binaryOf(const DaemonOptions &options) {
    if (!options.binary.empty()) {
        return options.binary;
    }
    const char *const named = std::getenv("TIDEWELL_BINARY");
    return named != nullptr ? named : TIDEWELL_BUILD_DIR "/tidewell";
}

// What the program gets of our own environment: the search path, and how sanitizers
// are to behave.
std::vector<std::string> environmentFor(const DaemonOptions &options) {
    std::vector<std::string> env = options.env;
    for (const char *name : {"PATH", "ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS",
                             "UBSAN_OPTIONS", "LLVM_PROFILE_FILE", "TZ"}) {
        if (const char *value = std::getenv(name); value != nullptr) {
            env.push_back(std::string(name) + "=" + value);
        }
    }
    if (options.product) {
        env.push_back("PRODUCT=" + *options.product);
    }
    if (options.write_config) {
        env.push_back("PROXY_CFG=" + options.config_file.string());
    }
    return env;
}

FileDescriptor createFile(const fs::path &path) {
    FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644));
    check(file.get(), "create " + path.string());
    return file;
}

void startAs(const DaemonOptions &options) {
    if (!options.real_time) {
        prctl(PR_CAPBSET_DROP, CAP_SYS_NICE);
    }
    if (options.before_exec) {
        options.before_exec();
    }
}

fs::path outputPath(const DaemonOptions &options, int number, const char *ending) {
    return options.output_directory / ("daemon-" + std::to_string(number) + ending);
}

ChildProcess launch(const DaemonOptions &options, const fs::path &out_path,
                    const fs::path &err_path) {
    if (options.write_config) {
        writeAll(options.config_file,
                 options.config.value_or(configDocument(options.primary, options.backup)));
    }
    const FileDescriptor out = createFile(out_path);
    const FileDescriptor err = createFile(err_path);
    return ChildProcess({.command = {binaryOf(options).string()},
                         .env = environmentFor(options),
                         .out = out.get(),
                         .err = err.get(),
                         .before_exec = [&options] { startAs(options); }});
}

}  // namespace

std::string configDocument(const std::string &primary, const std::string &backup) {
    return "{ \"uris\" : [\n" + slotDocument(0, primary) + ",\n" + slotDocument(1, backup) +
           "\n] }\n";
}

Daemon::Daemon(const DaemonOptions &options)
    : config_file(options.config_file), number(nextNumber()),
      out_file(outputPath(options, number, ".out")), err_file(outputPath(options, number, ".err")),
      process(launch(options, out_file, err_file)) {}

Daemon::~Daemon() {
    process.end(kDefaultLimit);
}

int Daemon::stop(std::chrono::milliseconds limit) {
    process.end(limit);
    return process.status();
}

std::optional<int> Daemon::waitForEnd(std::chrono::milliseconds limit) {
    if (!process.waitForEnd(limit)) {
        return std::nullopt;
    }
    return process.status();
}

void Daemon::writeConfig(const std::string &text) {
    writeAll(config_file, text);
}

std::string Daemon::standardOutput() const {
    return readAll(out_file);
}

std::string Daemon::standardError() const {
    return readAll(err_file);
}

std::string Daemon::said() const {
    std::string words;
    std::istringstream lines(standardOutput());
    for (std::string line; std::getline(lines, line);) {
        words += line.substr(line.find(" : ") == 15 ? 18 : 0) + "|";
    }
    return words;
}

int Daemon::countLines(const std::string &text) const {
    return countIn(standardOutput(), text) + countIn(standardError(), text);
}

bool Daemon::waitForLine(const std::string &text, int times, std::chrono::milliseconds limit) {
    return waitUntil([&] { return countLines(text) >= times; }, limit);
}

int Daemon::descriptors() const {
    std::error_code error;
    const fs::directory_iterator entries("/proc/" + std::to_string(pid()) + "/fd", error);
    return error ? -1 : static_cast<int>(std::distance(entries, fs::directory_iterator{}));
}

int Daemon::threads() const {
    return static_cast<int>(statusValue("Threads:"));
}

long Daemon::residentKb() const {
    return statusValue("VmRSS:");
}

long Daemon::statusValue(const std::string &key) const {
    std::ifstream status("/proc/" + std::to_string(pid()) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return std::strtol(line.c_str() + key.size(), nullptr, 10);
        }
    }
    return -1;
}

}  // namespace sim
