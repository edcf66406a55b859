// tchtxpwr: the report text with no packets, the carrier-power arithmetic,
// an unknown algorithm, and transport-channel counts past the snapshot's
// records. The values of each packet are WcdmaReportsProcess's.
#include "reports/wcdma/tch_tx_pwr.h"

#include <gtest/gtest.h>

#include "testsupport/report_harness.h"

namespace {

using rt::test::LogPacket;

constexpr const char* kNotSupportedTail =
    "dch_sir::Not supported!\ndch_sir_target::Not supported!\n"
    "dch_bler_target::Not supported!\ndch_avgcalls::Not supported!\n";

class TchTxPwrTest : public testing::Test {
  protected:
    std::string Report() { return harness_.Run("tchtxpwr"); }
    rt::test::ReportHarness harness_;
};

TEST_F(TchTxPwrTest, NoPacketsGiveNoDataAndTheUnsupportedValues) {
    ASSERT_TRUE(harness_.ok());
    EXPECT_EQ(Report(), std::string("dch_tx_pwr::No data available!\n"
                                    "dch_tx_pwr_step::No data available!\n"
                                    "dch_tx_pwr_algo::No data available!\n"
                                    "dch_bler::No data available!\n"
                                    "dch_utra_rssi::No data available!\n") +
                            kNotSupportedTail);
}

TEST_F(TchTxPwrTest, UnknownAlgorithmIsLeftOutAndZeroChannelsGiveAnEmptyArray) {
    LogPacket(0x410C, 29).Set8(12, 3).Set8(16, 7).Set8(17, 2).Deliver();
    LogPacket(0x4116, 87).Set8(12, 0).Deliver();
    std::string report = Report();
    EXPECT_NE(report.find("dch_tx_pwr:n:3\ndch_tx_pwr_step:n:2\ndch_bler:json:[]\n"),
              std::string::npos)
        << report;
    EXPECT_EQ(report.find("dch_tx_pwr_algo"), std::string::npos) << report;
}

TEST_F(TchTxPwrTest, ChannelCountPastTheEightRecordsIsCutToThem) {
    LogPacket packet(0x4116, 87);
    packet.Set8(12, 200);
    for (unsigned k = 0; k < 8; ++k) packet.Set8(15 + 9 * k, 10 + k).Set32(20 + 9 * k, 100 + k);
    packet.Deliver();
    std::string report = Report();
    EXPECT_NE(report.find("{\"bler7\":107,\"tr_channel_id7\":17}]"), std::string::npos) << report;
    EXPECT_EQ(report.find("bler8"), std::string::npos) << report;
}

struct RssiCase {
    int16_t raw;
    int16_t dbm;
};

TEST(UtraRssiFromRawPower, TruncatesTowardZero) {
    for (RssiCase c : {RssiCase{-600, -114}, RssiCase{-513, -106}, RssiCase{0, -55},
                       RssiCase{-512, -106}, RssiCase{-523, -107}, RssiCase{32767, 3221}}) {
        EXPECT_EQ(UtraRssiFromRawPower(c.raw), c.dbm) << "raw " << c.raw;
    }
}

}  // namespace
