// What the unit's devices tell as text.
#pragma once

#include <optional>
#include <string>

enum class text_end_t { line, file };

// All that the device at `path` says up to its end or that of its first line, within about a
// second and 64 KB. Nothing if it cannot be opened within a second.
std::optional<std::string> readDevice(const char *path, text_end_t end);
