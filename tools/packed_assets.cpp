#include "tools/packed_assets.h"

#include <cstdint>
#include <cstring>
#include <iterator>

extern "C" const unsigned char packed_bytes[];

// The assembler copies the bytes in: no compiler has to read a megabyte of text.
asm(".pushsection .rodata\n"
    ".global packed_bytes\n"
    "packed_bytes:\n"
    ".incbin \"" TIDEWELL_ASSETS_BIN "\"\n"
    ".popsection\n");

namespace {

struct asset_record {
    const char *name;  // null ends the table
    const unsigned char *data;
    std::uint32_t size;  // content length plus one: the zero byte counts
    std::int32_t mtime;  // the source file's, in seconds since the epoch
};

const asset_record kAssets[] = {
#include "tools/packed_assets.inc"
    {nullptr, nullptr, 0, 0}};

}  // namespace

const char *assetContent(const char *path, size_t *size, time_t *mtime) {
    for (const asset_record *asset = kAssets; asset->name != nullptr; ++asset) {
        if (std::strcmp(asset->name, path) != 0)
            continue;
        if (size != nullptr)
            *size = asset->size - 1;
        if (mtime != nullptr)
            *mtime = asset->mtime;
        return reinterpret_cast<const char *>(asset->data);
    }
    return nullptr;
}

// Past the end record it stays null, so that a caller cannot walk off the table.
const char *assetName(size_t no) {
    return no < std::size(kAssets) ? kAssets[no].name : nullptr;
}
