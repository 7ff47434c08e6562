// Two addresses as a settings document, and what a settings file turns out to hold.
#pragma once

#include <filesystem>
#include <string>

struct Settings {
    std::string primary;
    std::string backup;  // empty: disabled

    [[nodiscard]] std::string text() const;
};

// Equal for documents that a JSON reader takes for the same; what stands behind the first
// value does not count.
std::string meaningOf(const std::string &text);

std::string readText(const std::filesystem::path &path);
void writeText(const std::filesystem::path &path, const std::string &text);
