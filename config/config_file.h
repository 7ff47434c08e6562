// The settings file as a text: read whole, and replaced so that a crash, a kill or a
// full disk leaves either the old or the new document readable.
#pragma once

#include <optional>
#include <string>

// The file's text, which may be empty. Nothing if it cannot be opened or read.
std::optional<std::string> readConfigFile(const std::string &path);

// Lays `text` over the file's old content, creating the file if there is none. False
// if it could not; where it was for want of room, the old document still stands.
[[nodiscard]] bool writeConfigFile(const std::string &path, const std::string &text);
