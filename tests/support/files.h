// Whole files in one call, for tests.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

inline std::string readFile(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

inline void writeFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::trunc) << text;
}
