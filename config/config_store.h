// The two stream addresses, primary (slot 0) and backup (slot 1), and the file that
// carries them over a restart.
//
// A document is merged, not loaded: a slot that it does not name stays as it is. The
// file receives the client's own bytes, never a rendering of what is held here.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <json/value.h>

#include "config/stream_uri.h"
#include "core/shared/mutex.h"

// Threads: every operation locks `mutex` itself; none calls another one.
// Owner:   main(). The pump and ApiHandler borrow a pointer and end before it.
// Errors:  by small integers; only a copy or a document that is asked for may throw
//          for want of memory. A missing or unreadable file counts as the default
//          document, in which both slots are "srt://" and disabled; text that is no
//          JSON object changes nothing.
class ConfigStore {
public:
    // Reads nothing yet: both slots are blank until the first reload().
    explicit ConfigStore(std::string file_path);

    // Merges the file into the slots.
    void reload() EXCLUDES(mutex);

    // Copies the address in `slot` to `out` and returns 0. Returns 1 and leaves `out`
    // alone if there is no such slot.
    [[nodiscard]] int getUri(std::size_t slot, StreamUri &out) EXCLUDES(mutex);

    // Both slots as a compact JSON document with the one key `uris`.
    std::string urisJson() EXCLUDES(mutex);

    // Merges a client's document and, if all of it could be merged, saves it. Always 0.
    int applyDocument(const std::string &text) EXCLUDES(mutex);

private:
    int mergeDocument(const std::string &text) REQUIRES(mutex);
    int mergeElement(const Json::Value &element) REQUIRES(mutex);

    Mutex mutex;                                    // covers the file as well
    std::vector<StreamUri> uris GUARDED_BY(mutex);  // always two, index = slot
    std::string foo GUARDED_BY(mutex);              // the file's key of that name
    const std::string path;                         // fixed at construction
};
