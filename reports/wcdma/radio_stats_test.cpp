// radiostats: the RRC state classification and the exact report text
// written to the status object, for each kind of state code. The reply to
// the client is every process test's radiostats request.
#include "reports/wcdma/radio_stats.h"

#include <gtest/gtest.h>

#include <string>

#include "testsupport/report_harness.h"

namespace {

struct StateCase {
    unsigned code;  // none: no packet yet
    const char* state;
    const char* conn_state;
};

TEST(RadioStatsTest, ClassifiesTheStateCode) {
    constexpr const char* kNoData = "No data available!";
    const StateCase cases[] = {
        {256, kNoData, kNoData},
        {0, "RRC_Disconnected", kNoData},
        {1, "RRC_Connecting", kNoData},
        {0xFF, "Invalid", kNoData},
        {2, "RRC_CONNECTED", "CELL_FACH"},
        {3, "RRC_CONNECTED", "CELL_DCH"},
        {4, "RRC_CONNECTED", "CELL_PCH"},
        {5, "RRC_CONNECTED", "URA_PCH"},
        // 6 to 254: neither state attribute
        {6, nullptr, nullptr},
        {200, nullptr, nullptr},
        {254, nullptr, nullptr},
    };
    for (const StateCase& c : cases) {
        rt::test::ReportHarness harness;
        ASSERT_TRUE(harness.ok());
        if (c.code < 256) rt::test::LogPacket(0x4125, 13).Set8(12, c.code).Deliver();
        std::string expected;
        if (c.state) {
            expected =
                std::string("rrc_state::") + c.state + "\nrrc_conn_state::" + c.conn_state + "\n";
        }
        expected += "rrc_release::No data available!\nrrc_reject::No data available!\n";
        EXPECT_EQ(harness.Run("radiostats"), expected) << "code " << c.code;
    }
}

}  // namespace
