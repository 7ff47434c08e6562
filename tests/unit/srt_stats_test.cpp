#include "endpoints/srt_stats.h"

#include <gtest/gtest.h>

#include <json/writer.h>

namespace {

SRT_TRACEBSTATS numberedSample() {
    SRT_TRACEBSTATS sample{};
    sample.msTimeStamp = 90'061'999;
    sample.pktFlowWindow = 1;
    sample.pktCongestionWindow = 2;
    sample.pktFlightSize = 3;
    sample.mbpsRecvRate = 12.5;
    sample.mbpsSendRate = 4000;  // more than 32 bits of bits
    sample.msRTT = 4.25;
    sample.mbpsBandwidth = 5.5;
    sample.mbpsMaxBW = 6.5;
    sample.pktRecv = 7;
    sample.pktRcvLoss = 8;
    sample.pktRcvDrop = 9;
    sample.pktRcvRetrans = 10;
    sample.msRcvBuf = 11;
    sample.byteAvailRcvBuf = 12;
    sample.byteRcvBuf = 13;
    sample.pktSent = 14;
    sample.pktSndLoss = 15;
    sample.pktSndDrop = 16;
    sample.pktRetrans = 17;
    sample.msSndBuf = 18;
    sample.byteAvailSndBuf = 19;
    sample.byteSndBuf = 20;
    sample.msRcvTsbPdDelay = 21;
    sample.msSndTsbPdDelay = 99;
    return sample;
}

std::string compact(const Json::Value &document) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, document);
}

TEST(SrtStats, ReceiversDocument) {
    Json::Value document;
    writeInputStats(document, numberedSample(), "h:1");
    EXPECT_EQ(compact(document),
              R"({"endpoint":"h:1","link":{"bandwidth":5.5,"bps":12500000,"maxBandwidth":6.5,)"
              R"("rtt":4.25},"recv":{"byteAvailRcvBuf":12,"byteRcvBuf":13,"endpoint":"h:1",)"
              R"("msRcvBuf":11,"packets":7,"packetsDropped":9,"packetsLost":8,)"
              R"("packetsRetransmitted":10},"time":90061,)"
              R"("window":{"congestion":2,"flight":3,"flow":1}})");
}

TEST(SrtStats, SendersDocumentReplacesTheReceivers) {
    Json::Value document;
    writeInputStats(document, numberedSample(), "h:1");
    writeOutputStats(document, numberedSample(), "");
    EXPECT_EQ(compact(document),
              R"({"endpoint":"","link":{"bandwidth":5.5,"bps":2147483647,"maxBandwidth":6.5,)"
              R"("rtt":4.25},"recv":{"byteAvailSndBuf":19,"byteSndBuf":20,"msSndBuf":18,)"
              R"("packets":14,"packetsDropped":16,"packetsLost":15,"packetsRetransmitted":17},)"
              R"("time":90061,"window":{"congestion":2,"flight":3,"flow":1}})");
}

TEST(SrtStats, StatusLines) {
    EXPECT_EQ(inputStatusLine(numberedSample()),
              "msRcvBuf[0011] RTT[4.250] pktRcvDrop[0009] pktRcvLoss[0008] mbpsBandwidth[5.500] "
              "mbpsRecvRate[12.500] msRcvTsbPdDelay[0021]");
    EXPECT_EQ(outputStatusLine(numberedSample()),
              "RTT[4.250] pktSndDrop[0016] pktSndLoss[0015] pktRetrans[0017] mbpsBandwidth[5.500] "
              "mbpsSendRate[4000.000] pktFlightSize[0003] msRcvTsbPdDelay[0021]");
}

}  // namespace
