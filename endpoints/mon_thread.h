// The stats thread: one beside each open stream. It wakes once a second, refreshes the
// stats document every 2 seconds and logs a status line every 301 seconds, the first
// one 6 seconds after the stream has opened.
#pragma once

#include <atomic>
#include <cstdint>

class LogRing;
class proxy_srt_t;
struct StatsDocument;

// Lives in the pump's frame from before the thread starts until after its join.
struct MonitorArgs {
    proxy_srt_t *endpoint;              // borrowed until the join
    std::atomic<std::uint8_t> stop{0};  // atomic: pump raises, stats thread reads
    LogRing *log;
    StatsDocument *stats;
    std::uint32_t reserved = 0;  // handed on as update_stats' clear word
};

// A pthread entry; `argument` is a MonitorArgs. Ends within a second of its stop byte
// or of the process's stop flag, and leaves zeroes in the document. Returns null.
void *mon_thread_entry(void *argument);
