// The table of packed web files: what one row is.
//
// Only the lookups of packed_assets.cpp and their test read it; the HTTP layer
// sees the table through mg_unpack and mg_unlist alone.
#pragma once

#include <cstdint>

struct asset_record {
    const char *name;           // absolute, "/web_root/..."; null ends the table
    const unsigned char *data;  // `size` bytes, the last of them zero
    std::uint32_t size;         // content length plus one; a directory has 1
    std::int32_t mtime;         // the source file's, in seconds since the epoch
};
