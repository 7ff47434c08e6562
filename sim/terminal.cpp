#include "sim/terminal.h"

#include <unistd.h>

#include <iostream>

namespace sim {
namespace {

constexpr std::chrono::seconds kLineInterval{2};
constexpr const char *kToStartOfLine = "\r\033[K";

}  // namespace

Terminal::Terminal() : is_terminal(isatty(STDOUT_FILENO) == 1) {}

Terminal::~Terminal() {
    if (!living.empty()) {
        std::cout << std::endl;
    }
}

void Terminal::print(const std::string &line) {
    if (is_terminal) {
        std::cout << kToStartOfLine << line << '\n' << living << std::flush;
    } else {
        std::cout << line << std::endl;
    }
}

void Terminal::update(const std::string &line) {
    const auto now = std::chrono::steady_clock::now();
    if (is_terminal) {
        living = line;
        std::cout << kToStartOfLine << living << std::flush;
    } else if (now >= next_line) {
        next_line = now + kLineInterval;
        std::cout << line << std::endl;
    }
}

}  // namespace sim
