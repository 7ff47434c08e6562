// Any text as a stream address: refused, or taken in a form that can be shown.
#include "config/stream_uri.h"

#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    const std::string text = textOf(bytes, count);
    StreamUri record;
    if (parseStreamUri(text, record) != 0) {
        require(record.scheme.empty() && record.options.empty(), "a refused text leaves no trace");
        return 0;
    }
    require(!renderStreamUri(record).empty(), "an address can be shown");
    return 0;
}
