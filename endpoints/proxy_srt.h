// What the stats thread sees of an SRT endpoint, whichever way its data flows.
#pragma once

#include <cstdint>
#include <string>

struct StatsDocument;

// Threads: the three operations run on the stats thread while the pump reads or writes.
// Owner:   the pump, through the derived class; the stats thread is joined before the
//          endpoint is deleted.
// Errors:  a constructor that fails has said why (but for an address that may not be
//          opened at all), gives back what it opened and throws the int 1; or kPortNotFreeYet
//          (srt_link.h). The operations report nothing: without a socket they show zeroes.
class proxy_srt_t {
public:
    virtual ~proxy_srt_t() = default;

    // Takes a sample and writes it to the document. `clear` other than 0 also sets
    // libsrt's interval counters back.
    virtual void update_stats(StatsDocument *stats, std::uint32_t clear) = 0;

    // Writes zeroes and an empty peer to the document.
    virtual void clear_stats(StatsDocument *stats) = 0;

    // Puts the status line for the log into `line` and returns 1. Returns 0 and leaves
    // it alone while there is no peer to tell of.
    virtual int status_line(std::string *line) = 0;
};
