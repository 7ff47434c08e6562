// The main thread's work between start-up and shutdown: one stream at a time, opened,
// run until something ends it, closed, and opened again for ever.
//
// Failover, reconnecting and taking up new settings are all this one loop. Moving to
// the other address is one step of current_idx, unless somebody has chosen meanwhile.
// Nothing on the data path allocates, locks or logs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

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
    // the longest are a connect (3 s) and a host's lookup, which no limit ends.
    void run();

private:
    bool open();
    bool openSlot();
    void openFailed(const std::string &address);
    void runStream();
    void receive();
    void send();
    bool sendBuffer(int bytes);
    bool interrupted() const;
    bool chosenAnew() const;
    void endOfStream();

    const PumpParts parts;
    std::uint32_t began_with = 0;  // current_idx when the present attempt or stream began
    bool first_failure = false;    // of this run of the opening stage; the decoder logs no other
    std::unique_ptr<srt_input> input;    // the open stream of the decoder family
    std::unique_ptr<srt_output> output;  // the open stream of the encoder family
};
