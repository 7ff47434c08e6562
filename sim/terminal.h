// What the program shows: lines that stay, and below them one that lives.
#pragma once

#include <chrono>
#include <string>

namespace sim {

// On a terminal the living line is written over itself; elsewhere it becomes an
// ordinary line every two seconds.
// Threads: one.
class Terminal {
public:
    Terminal();
    ~Terminal();  // leaves the cursor on a fresh line
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    void print(const std::string &line);
    void update(const std::string &line);

private:
    const bool is_terminal;
    std::string living;  // as it stands at the bottom of a terminal
    std::chrono::steady_clock::time_point next_line{};
};

}  // namespace sim
