// Any bytes from a client, in pieces: requests and paths that stay inside the root. The
// first byte says how long the pieces are.
#include "http/asset_path.h"
#include "http/request_reader.h"

#include <algorithm>

#include "fuzz/fuzz_target.h"

namespace {

void checkPath(std::string_view uri) {
    std::string path;
    if (http::assetPath("/root", uri, path) != http::PathCheck::Ok) {
        return;
    }
    require(path.starts_with("/root"), "a path begins with its root");
    require(path.size() < 4096, "a path fits");
    for (const char *way_out : {"/..", "\\.."}) {
        require(path.find(way_out) == std::string::npos, "no path leads out of its root");
    }
}

// False where the connection would be closed.
bool takeRequests(http::RequestReader &reader, std::string &input) {
    for (;;) {
        switch (reader.read(input)) {
        case http::Verdict::NeedMore:
            return true;
        case http::Verdict::Complete:
            checkPath(reader.request().path);
            require(reader.request().body.size() <= http::kBodyLimit, "a body is within its limit");
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
    http::RequestReader reader;
    std::string input;
    bool open = true;
    for (std::size_t at = 0; open && at < all.size(); at += piece) {
        input += all.substr(at, piece);
        open = takeRequests(reader, input);
    }
    return 0;
}
