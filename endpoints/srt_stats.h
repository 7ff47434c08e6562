// libsrt's samples in the two forms that leave the process: the stats document's keys
// and the status line of the log. Receiver and sender differ in which counters count;
// the three operations at the end serve both.
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>
#include <srt/srt.h>

class srt_link_t;
struct StatsDocument;

// Assigns every key of the receiver's document; `window`, `link` and `recv` are made anew.
void writeInputStats(Json::Value &document, const SRT_TRACEBSTATS &sample, const std::string &peer);

// The sender's: the counters of the send side, under `recv` all the same, without a
// `recv.endpoint`.
void writeOutputStats(Json::Value &document, const SRT_TRACEBSTATS &sample,
                      const std::string &peer);

std::string inputStatusLine(const SRT_TRACEBSTATS &sample);
std::string outputStatusLine(const SRT_TRACEBSTATS &sample);

using stats_writer_t = void (*)(Json::Value &, const SRT_TRACEBSTATS &, const std::string &);
using line_writer_t = std::string (*)(const SRT_TRACEBSTATS &);

// Sample first, lock only to write. Without a peer the sample is all zero.
void updateStats(StatsDocument &stats, const srt_link_t &link, std::uint32_t clear,
                 stats_writer_t write);

// Zeroes and an empty peer; libsrt is not asked.
void clearStats(StatsDocument &stats, stats_writer_t write);

// 1 after filling `line`, 0 without a peer.
int statusLine(std::string &line, const srt_link_t &link, line_writer_t write);
