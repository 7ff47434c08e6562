#include "endpoints/srt_stats.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "endpoints/srt_link.h"
#include "endpoints/stats_document.h"

namespace {

constexpr std::size_t kStatusLineBytes = 512;

Json::Value bitsPerSecond(double megabits) {
    const double bits = megabits * 1'000'000;
    const double most = std::numeric_limits<std::int32_t>::max();
    return static_cast<Json::Int>(std::clamp(bits, -most, most));
}

void writeCommon(Json::Value &document, const SRT_TRACEBSTATS &sample, const std::string &peer,
                 double rate_mbps) {
    document["endpoint"] = peer;
    document["time"] = static_cast<Json::Int64>(sample.msTimeStamp / 1000);

    Json::Value window;
    window["flow"] = sample.pktFlowWindow;
    window["congestion"] = sample.pktCongestionWindow;
    window["flight"] = sample.pktFlightSize;
    document["window"] = std::move(window);

    Json::Value link;
    link["bps"] = bitsPerSecond(rate_mbps);
    link["rtt"] = sample.msRTT;
    link["bandwidth"] = sample.mbpsBandwidth;
    link["maxBandwidth"] = sample.mbpsMaxBW;
    document["link"] = std::move(link);
}

}  // namespace

void writeInputStats(Json::Value &document, const SRT_TRACEBSTATS &sample,
                     const std::string &peer) {
    writeCommon(document, sample, peer, sample.mbpsRecvRate);
    Json::Value recv;
    recv["endpoint"] = peer;
    recv["packets"] = static_cast<Json::Int64>(sample.pktRecv);
    recv["packetsLost"] = sample.pktRcvLoss;
    recv["packetsDropped"] = sample.pktRcvDrop;
    recv["packetsRetransmitted"] = sample.pktRcvRetrans;
    recv["msRcvBuf"] = sample.msRcvBuf;
    recv["byteAvailRcvBuf"] = sample.byteAvailRcvBuf;
    recv["byteRcvBuf"] = sample.byteRcvBuf;
    document["recv"] = std::move(recv);
}

void writeOutputStats(Json::Value &document, const SRT_TRACEBSTATS &sample,
                      const std::string &peer) {
    writeCommon(document, sample, peer, sample.mbpsSendRate);
    Json::Value recv;
    recv["packets"] = static_cast<Json::Int64>(sample.pktSent);
    recv["packetsLost"] = sample.pktSndLoss;
    recv["packetsDropped"] = sample.pktSndDrop;
    recv["packetsRetransmitted"] = sample.pktRetrans;
    recv["msSndBuf"] = sample.msSndBuf;
    recv["byteAvailSndBuf"] = sample.byteAvailSndBuf;
    recv["byteSndBuf"] = sample.byteSndBuf;
    document["recv"] = std::move(recv);
}

std::string inputStatusLine(const SRT_TRACEBSTATS &sample) {
    char line[kStatusLineBytes];
    snprintf(line, sizeof line,
             "msRcvBuf[%04d] RTT[%04.3f] pktRcvDrop[%04d] pktRcvLoss[%04d] mbpsBandwidth[%03.3f] "
             "mbpsRecvRate[%03.3f] msRcvTsbPdDelay[%04d]",
             sample.msRcvBuf, sample.msRTT, sample.pktRcvDrop, sample.pktRcvLoss,
             sample.mbpsBandwidth, sample.mbpsRecvRate, sample.msRcvTsbPdDelay);
    return line;
}

// The last field is this side's receive delay, which a sender does not use.
std::string outputStatusLine(const SRT_TRACEBSTATS &sample) {
    char line[kStatusLineBytes];
    snprintf(line, sizeof line,
             "RTT[%04.3f] pktSndDrop[%04d] pktSndLoss[%04d] pktRetrans[%04d] "
             "mbpsBandwidth[%03.3f] mbpsSendRate[%03.3f] pktFlightSize[%04d] "
             "msRcvTsbPdDelay[%04d]",
             sample.msRTT, sample.pktSndDrop, sample.pktSndLoss, sample.pktRetrans,
             sample.mbpsBandwidth, sample.mbpsSendRate, sample.pktFlightSize,
             sample.msRcvTsbPdDelay);
    return line;
}

void updateStats(StatsDocument &stats, const srt_link_t &link, std::uint32_t clear,
                 stats_writer_t write) {
    SRT_TRACEBSTATS sample;
    link.sample(sample, clear);
    const std::string peer = link.peer();
    const MutexLock lock(stats.stats_mutex);
    write(stats.document, sample, peer);
}

void clearStats(StatsDocument &stats, stats_writer_t write) {
    const MutexLock lock(stats.stats_mutex);
    write(stats.document, {}, "");
}

int statusLine(std::string &line, const srt_link_t &link, line_writer_t write) {
    SRT_TRACEBSTATS sample;
    if (!link.sample(sample, 0)) {
        return 0;
    }
    line = write(sample);
    return 1;
}
