#include "endpoints/srt_stats.h"

#include <gtest/gtest.h>

#include <json/writer.h>

namespace {

SRT_TRACEBSTATS numberedSample() {
    SRT_TRACEBSTATS sample{};
    sample.msTimeStamp = 90'061'999;
    sample.mbpsRecvRate = 12.5;
    sample.mbpsSendRate = 4000;  // more than 32 bits of bits
    sample.msRTT = 4.25;
    sample.mbpsBandwidth = 5.5;
    sample.mbpsMaxBW = 6.5;
    int number = 0;
    const auto count = [&](auto &...fields) { ((fields = ++number), ...); };
    count(sample.pktFlowWindow, sample.pktCongestionWindow, sample.pktFlightSize, sample.pktRecv,
          sample.pktRcvLoss, sample.pktRcvDrop, sample.pktRcvRetrans, sample.msRcvBuf,
          sample.byteAvailRcvBuf, sample.byteRcvBuf, sample.pktSent, sample.pktSndLoss,
          sample.pktSndDrop, sample.pktRetrans, sample.msSndBuf, sample.byteAvailSndBuf,
          sample.byteSndBuf, sample.msRcvTsbPdDelay);
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
              R"("rtt":4.25},"recv":{"byteAvailRcvBuf":9,"byteRcvBuf":10,"endpoint":"h:1",)"
              R"("msRcvBuf":8,"packets":4,"packetsDropped":6,"packetsLost":5,)"
              R"("packetsRetransmitted":7},"time":90061,)"
              R"("window":{"congestion":2,"flight":3,"flow":1}})");
}

TEST(SrtStats, SendersDocumentReplacesTheReceivers) {
    Json::Value document;
    writeInputStats(document, numberedSample(), "h:1");
    writeOutputStats(document, numberedSample(), "");
    EXPECT_EQ(compact(document),
              R"({"endpoint":"","link":{"bandwidth":5.5,"bps":2147483647,"maxBandwidth":6.5,)"
              R"("rtt":4.25},"recv":{"byteAvailSndBuf":16,"byteSndBuf":17,"msSndBuf":15,)"
              R"("packets":11,"packetsDropped":13,"packetsLost":12,"packetsRetransmitted":14},)"
              R"("time":90061,"window":{"congestion":2,"flight":3,"flow":1}})");
}

TEST(SrtStats, StatusLines) {
    EXPECT_EQ(inputStatusLine(numberedSample()),
              "msRcvBuf[0008] RTT[4.250] pktRcvDrop[0006] pktRcvLoss[0005] mbpsBandwidth[5.500] "
              "mbpsRecvRate[12.500] msRcvTsbPdDelay[0018]");
    EXPECT_EQ(outputStatusLine(numberedSample()),
              "RTT[4.250] pktSndDrop[0013] pktSndLoss[0012] pktRetrans[0014] mbpsBandwidth[5.500] "
              "mbpsSendRate[4000.000] pktFlightSize[0003] msRcvTsbPdDelay[0018]");
}

}  // namespace
