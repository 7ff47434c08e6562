// The web root inside the executable.
//
// Paths are absolute, "/web_root/...", and compared whole. A directory has an
// entry of its own, with no content. Nothing here is ever written: any thread
// may ask at any time.
#pragma once

#include <cstddef>
#include <ctime>

// The content of `path`, with a zero byte behind it; null if there is no such
// entry, and then the outs are left alone. Each out may be null.
const char *assetContent(const char *path, size_t *size, time_t *mtime);

// The path of entry `no`, counted from 0; null at and past the end.
const char *assetName(size_t no);
