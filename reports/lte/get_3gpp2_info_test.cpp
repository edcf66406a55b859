// The 3gpp2info handler in this process: modemsim's QMI side answers, a
// pipe stands in for diag/status_3gpp2 so the exact text written (and its
// attribute order) can be read back. The placeholders of a closed client
// are ControlChannel.EnsOpensTheChannelAnd3gpp2InfoPublishesTheModemsIdentity.
#include "reports/lte/get_3gpp2_info.h"

#include <gtest/gtest.h>

#include <string>

#include "testsupport/qmi_test_support.h"
#include "testsupport/report_harness.h"

namespace {

using qmi_test::Modem;

class Get3GPP2InfoTest : public testing::Test {
  protected:
    void TearDown() override { ResetVendorQmiForTest(); }
    // Runs the handler and returns what it wrote to diag/status_3gpp2.
    std::string Run() { return harness_.Run("3gpp2info"); }
    rt::test::ReportHarness harness_;
};

TEST_F(Get3GPP2InfoTest, ModemValuesInSuccessOrder) {
    Modem modem;
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Run(),
              "pesn::80A1B2C3\n"
              "mob_fw::1.0.4\n"
              "mob_p_rev:n:6\n"
              "sci:n:2\n"
              "model::TAVORA-X1\n");
}

TEST_F(Get3GPP2InfoTest, MissingSciAndFullWidthPesn) {
    Modem modem(
        R"({"misc_info": {"pesn": "0123456789ABCDEF", "sci": null, "mob_fw": "12345678"}})");
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Run(),
              "pesn::0123456789ABCDEF\n"
              "mob_fw::12345678\n"
              "mob_p_rev:n:6\n"
              "sci::No data available!\n"
              "model::TAVORA-X1\n");
}

TEST_F(Get3GPP2InfoTest, RawResponseWithZeroValuesGivesNoData) {
    // result | 10 00 00 | 11 01 00 00 | 12 01 00 00 | 13 00 00 | 14 00 00
    Modem modem(
        R"({"raw_response": {"0x14": "02040000000000 100000 11010000 12010000 130000 140000"}})");
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Run(),
              "pesn::No data available!\n"
              "mob_fw::No data available!\n"
              "mob_p_rev::No data available!\n"
              "sci::No data available!\n"
              "model::No data available!\n");
}

}  // namespace
