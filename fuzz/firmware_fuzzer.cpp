// Any listing of the firmware server and any name of a client, which is the first line. The
// platform word comes from the unit's own environment and is no stranger's.
#include "api/firmware_files.h"
#include "api/firmware_server.h"

#include "fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    const std::string text = textOf(bytes, count);
    const std::string name = text.substr(0, text.find('\n'));
    if (isFirmwareName(name)) {
        require(name.find_first_of("/ ;&|$`'\"\\<>(){}*?!#\n") == std::string::npos,
                "a name means nothing to a shell");
        require(name.size() <= 200 && name.starts_with("tidewell-"), "a name is a firmware file's");
    }
    for (const std::string &found : scrapeFirmwareNames(text, "fennel")) {
        require(found.starts_with("tidewell-fennel"), "only this platform's files are listed");
        require(found.find('\n') == std::string::npos, "a name lies within its line");
    }
    return 0;
}
