// Any bytes from a client, in pieces: messages and paths that stay inside the root. The
// first byte says how long the pieces are.
#include "net/asset_path.h"
#include "net/message_reader.h"

#include <algorithm>

#include "fuzz/fuzz_target.h"

namespace {

std::string_view viewOf(const mg_str &text) {
    return {text.buf, text.len};
}

void checkPath(std::string_view uri) {
    std::string path;
    if (net::assetPath("/root", uri, path) != net::PathCheck::Ok) {
        return;
    }
    require(path.starts_with("/root"), "a path begins with its root");
    require(path.size() < 4096, "a path fits");
    for (const char *way_out : {"/..", "\\.."}) {
        require(path.find(way_out) == std::string::npos, "no path leads out of its root");
    }
}

// False where the connection would be closed.
bool takeMessages(net::MessageReader &reader, std::string &input) {
    for (;;) {
        switch (reader.parse(input)) {
        case net::MessageReader::Result::NeedMore:
            return true;
        case net::MessageReader::Result::Complete:
            checkPath(viewOf(reader.message().uri));
            require(reader.message().body.len <= net::kBodyLimit, "a body is within its limit");
            reader.reset();
            break;
        default:
            return false;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    if (count < 2) {
        return 0;
    }
    const std::size_t piece = std::size_t{bytes[0]} + 1;
    const std::string all = textOf(bytes + 1, count - 1);
    checkPath(all);
    const auto reader = net::makeRequestReader();
    std::string input;
    bool open = true;
    for (std::size_t at = 0; open && at < all.size(); at += piece) {
        input += all.substr(at, piece);
        open = takeMessages(*reader, input);
    }
    if (open) {
        reader->finish();
    }
    return 0;
}
