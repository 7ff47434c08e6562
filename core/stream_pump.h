// The main thread's work between start-up and shutdown: one stream at a time, opened,
// run until something ends it, closed, and opened again for ever.
//
// Failover, reconnecting and taking up new settings are all this one loop. Moving to
// the other address is adding 1 to current_idx, whose remainder by 2 is the slot.
// Nothing on the data path allocates, locks or logs.
#pragma once

#include <cstddef>
#include <memory>

#include "core/shared/shared_words.h"

class ConfigStore;
class LogRing;
class file_input_t;
class srt_input;
class srt_output;
class udp_output_t;
struct StatsDocument;

// Everything borrowed from main(), which outlives the pump.
struct PumpParts {
    LogRing *log;
    ConfigStore *store;
    StatsDocument *stats;
    ChangeFlag *change_flag;
    CurrentIdx *current_idx;
    char *buffer;
    std::size_t buffer_bytes;
    udp_output_t *udp_output;  // decoder family, else null
    file_input_t *file_input;  // encoder family, else null
};

// Threads: main thread only; it starts and joins the stats thread of each stream.
class StreamPump {
public:
    explicit StreamPump(const PumpParts &borrowed);
    ~StreamPump();
    StreamPump(const StreamPump &) = delete;
    StreamPump &operator=(const StreamPump &) = delete;

    // Returns once the stop flag is raised, with nothing open. It is seen between two steps;
    // the longest are a connect (3 s), a host's lookup and the pauses after failures (3 s).
    void run();

private:
    bool open();
    bool openSlot(std::size_t slot);
    void openFailed(std::size_t slot);
    void runStream();
    void receive();
    void send();
    bool interrupted() const;
    void endOfStream();

    const PumpParts parts;
    bool first_failure = false;  // of this run of the opening stage; the decoder logs no other
    std::unique_ptr<srt_input> input;    // the open stream of the decoder family
    std::unique_ptr<srt_output> output;  // the open stream of the encoder family
};
