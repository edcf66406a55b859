// tchtxpwr: the whole report text for each source, the carrier-power
// arithmetic, and transport-channel counts past the snapshot's records.
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

TEST_F(TchTxPwrTest, PowerChannelsAndRssiFromTheirPackets) {
    // 0x410C: tx power 0xF6 (-10 dBm), algorithm 2, step 1.
    LogPacket(0x410C, 29).Set8(12, 0xF6).Set8(16, 2).Set8(17, 1).Deliver();
    // 0x4116: two channels, ids 5 and 6 at 15 + 9k, rates 0 and 12 at 20 + 9k.
    LogPacket(0x4116, 87).Set8(12, 2).Set8(15, 5).Set32(20, 0).Set8(24, 6).Set32(29, 12).Deliver();
    // 0x4165: raw power -600.
    LogPacket(0x4165, 514).Set16(14, static_cast<uint16_t>(-600)).Deliver();
    EXPECT_EQ(Report(), std::string("dch_tx_pwr:n:-10\n"
                                    "dch_tx_pwr_step:n:1\n"
                                    "dch_tx_pwr_algo::PCA2\n"
                                    "dch_bler:json:[{\"bler0\":0,\"tr_channel_id0\":5},"
                                    "{\"bler1\":12,\"tr_channel_id1\":6}]\n"
                                    "dch_utra_rssi:n:-114\n") +
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
