// The web root inside the executable, and the two lookups by which the HTTP
// layer's packed file system reads it. All of it is read-only.
#include "tools/asset_record.h"

#include <cstring>
#include <ctime>
#include <iterator>

extern "C" {
// What the HTTP layer calls; it does not know who defines them.
const char *mg_unpack(const char *path, size_t *size, time_t *mtime);
const char *mg_unlist(size_t no);

extern const unsigned char packed_bytes[];
}

// The assembler copies the bytes in: no compiler has to read a megabyte of text.
asm(".pushsection .rodata\n"
    ".global packed_bytes\n"
    "packed_bytes:\n"
    ".incbin \"" TIDEWELL_ASSETS_BIN "\"\n"
    ".popsection\n");

namespace {

const asset_record kAssets[] = {
#include "packed_assets.inc"
    {nullptr, nullptr, 0, 0}};

}  // namespace

const char *mg_unpack(const char *path, size_t *size, time_t *mtime) {
    for (const asset_record *asset = kAssets; asset->name != nullptr; ++asset) {
        if (std::strcmp(asset->name, path) != 0) continue;
        if (size != nullptr) *size = asset->size - 1;
        if (mtime != nullptr) *mtime = asset->mtime;
        return reinterpret_cast<const char *>(asset->data);
    }
    return nullptr;
}

// Past the end record it stays null, so that a caller cannot walk off the table.
const char *mg_unlist(size_t no) {
    return no < std::size(kAssets) ? kAssets[no].name : nullptr;
}
