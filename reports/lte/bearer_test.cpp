// bearer: the six QoS attributes or their placeholders in the order each
// case has, and rab_id from the 0x413A entry its selector names, never
// read past the 205-byte snapshot.
#include "reports/lte/bearer.h"

#include <gtest/gtest.h>

#include "testsupport/report_harness.h"

namespace {

using rt::test::LogPacket;

class BearerTest : public testing::Test {
  protected:
    std::string Report() { return harness_.Run("bearer"); }
    rt::test::ReportHarness harness_;
};

TEST_F(BearerTest, EmptyStoreGivesSevenPlaceholders) {
    ASSERT_TRUE(harness_.ok());
    EXPECT_EQ(Report(),
              "rab_traffic_class::No data available!\n"
              "rab_data_rate::No data available!\n"
              "rab_domain::No data available!\n"
              "rab_mbr::No data available!\n"
              "rab_gbr::No data available!\n"
              "rab_ber::No data available!\n"
              "rab_id::No data available!\n");
}

TEST_F(BearerTest, QosProfileAndRabId) {
    // 0x7136: mean throughput 31, traffic class 3, DL max rate 254, residual
    // BER 7, DL guaranteed rate 255; the UL rates (22, 28) are not reported.
    LogPacket(0x7136, 30)
        .Set8(17, 31)
        .Set8(18, 3)
        .Set8(22, 1)
        .Set8(23, 254)
        .Set8(24, 7)
        .Set8(28, 1)
        .Set8(29, 255)
        .Deliver();
    // 0x413A: selector 1, entry 1's RAB id at 19 and 20.
    LogPacket(0x413A, 205).Set8(12, 1).Set16(13, 4).Set16(19, 6).Deliver();
    EXPECT_EQ(Report(),
              "rab_domain::PS\n"
              "rab_data_rate::Best effort\n"
              "rab_traffic_class::Interactive class\n"
              "rab_mbr:n:8640\n"
              "rab_gbr:n:0\n"
              "rab_ber::1*10^(-5)\n"
              "rab_id:n:6\n");
}

struct RabCase {
    const char* name;
    unsigned selector;
    const char* expected;
};

// Each entry's RAB id is 1000 + its number, so the line tells which entry
// was read; entry 31 is the last one inside the snapshot.
TEST_F(BearerTest, SelectorPicksTheEntryInsideTheSnapshot) {
    LogPacket rabs(0x413A, 205);
    for (unsigned n = 0; n < 32; ++n) rabs.Set16(13 + 6 * n, 1000 + n);
    const RabCase cases[] = {
        {"first", 0, "rab_id:n:1000\n"},  // offsets 13 and 14
        {"third", 2, "rab_id:n:1002\n"},  // offsets 25 and 26
        {"last", 31, "rab_id:n:1031\n"},  // offsets 199 and 200
        {"past_end", 32, "rab_id::No data available!\n"},
        {"far_past_end", 255, "rab_id::No data available!\n"},
    };
    for (const RabCase& c : cases) {
        g_log_snapshot_store.Reset();
        rabs.Set8(12, c.selector);
        rabs.Deliver();
        const std::string report = Report();
        EXPECT_NE(report.find(c.expected), std::string::npos) << c.name << "\n" << report;
    }
}

}  // namespace
