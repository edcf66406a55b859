// hspaopinfo: CQI decoding in both formats, the rate selector and the
// transport-channel record chosen for the block error rate, each with
// counts and positions past what the snapshot holds.
#include "reports/wcdma/hspa_op_info.h"

#include <gtest/gtest.h>

#include "testsupport/report_harness.h"

namespace {

using rt::test::LogPacket;

struct CqiCase {
    uint8_t format;
    uint16_t sample;
    const char* type;
    int number;
};

TEST(DecodeCqiSample, BothFormats) {
    const CqiCase cases[] = {
        {0, 0x0013, "Type A CQI", 9},   {0, 0x0200, "Type B CQI", 0},
        {1, 0x0000, "No CQI DTX", 0},   {1, 0x007D, "Type B CQI", 31},
        {1, 0x03FE, "Type A CQI", 255}, {1, 0x0087, "DCHSPA CQI", 1},
        {0, 0x01FF, "Type A CQI", 255}, {1, 0xFFFE, "Type A CQI", 255},
    };
    for (const CqiCase& c : cases) {
        CqiReading reading = DecodeCqiSample(c.format, c.sample);
        ASSERT_NE(reading.type, nullptr) << c.sample;
        EXPECT_STREQ(reading.type, c.type) << "format " << int(c.format) << " sample " << c.sample;
        EXPECT_EQ(reading.number, c.number) << "format " << int(c.format) << " sample " << c.sample;
    }
    EXPECT_EQ(DecodeCqiSample(2, 0x0013).type, nullptr);
}

class HspaOpInfoTest : public testing::Test {
  protected:
    std::string Report() { return harness_.Run("hspaopinfo"); }
    rt::test::ReportHarness harness_;
};

TEST_F(HspaOpInfoTest, NoPacketsGiveNoDataForEveryAttribute) {
    ASSERT_TRUE(harness_.ok());
    EXPECT_EQ(Report(),
              "hsdpa_cqi_type::No data available!\n"
              "hsdpa_cqi_num::No data available!\n"
              "hssch_code::No data available!\n"
              "hsdpa_rate::No data available!\n"
              "hsdpa_bler::No data available!\n"
              "hspa_ue_state::No data available!\n"
              "hspa_irat_ch::No data available!\n"
              "hspa_irat_cm::No data available!\n"
              "hspa_irat_carrier_rssi::No data available!\n");
}

// The CQI, rate and BLER values are the cases below and
// WcdmaReportsProcess's; the IRAT values come from 0x4156 alone.
TEST_F(HspaOpInfoTest, IratValuesFromTheirPacket) {
    // 0x4156: state 4, compressed mode 1, channel 10812, carrier RSSI 0xB5.
    LogPacket(0x4156, 390).Set8(12, 4).Set8(13, 1).Set16(14, 10812).Set8(16, 0xB5).Deliver();
    const std::string report = Report();
    EXPECT_NE(report.find("hspa_ue_state:n:4\nhspa_irat_ch:n:10812\nhspa_irat_cm:n:1\n"
                          "hspa_irat_carrier_rssi:n:-75\n"),
              std::string::npos)
        << report;
}

struct OutOfRangeCase {
    const char* name;
    LogPacket packet;
    const char* expected;  // the line that must be there, or "" for none
    const char* absent;    // text that must not be there
};

TEST_F(HspaOpInfoTest, CountsAndPositionsPastTheSnapshot) {
    LogPacket all_channels(0x4116, 87);
    all_channels.Set8(12, 255);
    for (unsigned k = 0; k < 8; ++k) all_channels.Set32(20 + 9 * k, 500 + k);
    const OutOfRangeCase cases[] = {
        {"cqi_position_250", LogPacket(0x421C, 516).Set8(12, 0).Set8(13, 250), "", "hsdpa_cqi"},
        {"cqi_format_2", LogPacket(0x421C, 516).Set8(12, 2).Set8(13, 0).Set16(16, 0x13), "",
         "hsdpa_cqi"},
        {"cqi_last_position", LogPacket(0x421C, 516).Set8(12, 0).Set8(13, 249).Set16(514, 0x13),
         "hsdpa_cqi_num:n:9\n", "hsdpa_cqi_type::No data"},
        {"rate_selector_4", LogPacket(0x4138, 169).Set8(12, 4), "hsdpa_rate::No data available!\n",
         "hsdpa_rate:n"},
        {"rate_selector_3", LogPacket(0x4138, 169).Set8(12, 3).Set16(143, 77), "hsdpa_rate:n:77\n",
         "hsdpa_rate::"},
        {"channel_count_0", LogPacket(0x4116, 87).Set8(12, 0), "hsdpa_bler::No data available!\n",
         "hsdpa_bler:n"},
        {"channel_count_255", all_channels, "hsdpa_bler:n:507\n", "hsdpa_bler::"},
    };
    for (const OutOfRangeCase& c : cases) {
        g_log_snapshot_store.Reset();
        c.packet.Deliver();
        std::string report = Report();
        if (*c.expected) {
            EXPECT_NE(report.find(c.expected), std::string::npos) << c.name << "\n" << report;
        }
        EXPECT_EQ(report.find(c.absent), std::string::npos) << c.name << "\n" << report;
        EXPECT_NE(report.find("hssch_code::No data available!\n"), std::string::npos) << c.name;
    }
}

}  // namespace
