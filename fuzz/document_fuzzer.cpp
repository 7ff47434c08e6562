// Any text as a client's settings: both slots stay readable JSON.
#include "config/config_store.h"
#include "config/json_text.h"

#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    ConfigStore store("/dev/null");
    require(store.applyDocument(textOf(bytes, count)) == 0, "applying never fails");
    Json::Value shown;
    require(parseJson(store.urisJson(), shown), "the slots are shown as JSON");
    require(shown["uris"].size() == 2, "there are two slots");
    store.reload();
    return 0;
}
