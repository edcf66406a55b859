// umtsopinfo in the test's own process: the update-status texts, DRX, the
// compressed-mode flag, apn1_pdp_qos with its 18 members in order, and where
// the modem's neighbour families go. The members' fallbacks are the QoS
// decoders' table; a two-name member under its plain name is
// UmtsOpInfoProcess's ("Transfer delay").
#include "reports/lte/umts_op_info.h"

#include <gtest/gtest.h>

#include "testsupport/qmi_test_support.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::LinesStartingWith;
using rt::test::LogPacket;
using Lines = std::vector<std::string>;

class UmtsOpInfoTest : public testing::Test {
  protected:
    void TearDown() override { ResetVendorQmiForTest(); }
    std::string Report() { return harness_.Run("umtsopinfo"); }
    rt::test::ReportHarness harness_;
};

// No packets, no connection service, no QMI client: no PDN, QoS or
// neighbour attribute at all.
TEST_F(UmtsOpInfoTest, EmptyStoreNoServicesNoQmi) {
    ASSERT_TRUE(harness_.ok());
    EXPECT_EQ(Report(),
              "mm_reject::No data available!\n"
              "gmm_reject::No data available!\n"
              "drx::No data available!\n"
              "irat_cm1::No data available!\n"
              "t3212::Not supported!\n");
}

struct StatusCase {
    uint16_t code;
    unsigned status;
    const char* line;
};

TEST_F(UmtsOpInfoTest, UpdateStatusTexts) {
    const StatusCase cases[] = {
        {0x7131, 0, "mm_reject::Updated\n"},
        {0x7131, 1, "mm_reject::Not Updated\n"},
        {0x7131, 2, "mm_reject::Roaming Not Allowed\n"},
        {0x7131, 3, "mm_reject::Location Area Not Allowed\n"},
        {0x7131, 4, "mm_reject::No data available!\n"},
        {0x7131, 255, "mm_reject::No data available!\n"},
        {0x7130, 0, "gmm_reject::GMM GU1 Updated\n"},
        {0x7130, 1, "gmm_reject::GMM GU Not Updated\n"},
        {0x7130, 2, "gmm_reject::GMM GU2 PLMN Not Allowed\n"},
        {0x7130, 3, "gmm_reject::GMM GU3 Routing Area Not Allowed\n"},
        {0x7130, 4, "gmm_reject::No data available!\n"},
    };
    for (const StatusCase& c : cases) {
        g_log_snapshot_store.Reset();
        LogPacket(c.code, 15).Set8(14, c.status).Deliver();
        const std::string report = Report();
        EXPECT_NE(report.find(c.line), std::string::npos) << c.line << report;
    }
}

TEST_F(UmtsOpInfoTest, DrxAndCompressedModeFlag) {
    LogPacket(0x4004, 19).Set16(12, 0x0107).Deliver();
    LogPacket(0x4000, 13).Set8(12, 0).Deliver();
    std::string report = Report();
    EXPECT_NE(report.find("drx:n:263\n"), std::string::npos) << report;
    EXPECT_NE(report.find("irat_cm1::off\nt3212::Not supported!\n"), std::string::npos) << report;
    LogPacket(0x4000, 13).Set8(12, 5).Deliver();
    report = Report();
    EXPECT_NE(report.find("irat_cm1::on\n"), std::string::npos) << report;
}

// One byte per member, from byte 12 on.
LogPacket QosPacket(std::initializer_list<unsigned> codes) {
    LogPacket packet(0x7136, 30);
    size_t at = 12;
    for (unsigned code : codes) packet.Set8(at++, code);
    return packet;
}

TEST_F(UmtsOpInfoTest, PdpQosIsOneUnnamedObjectOfEighteenMembers) {
    QosPacket({5, 4, 3, 9, 2, 31, 3, 1, 2, 153, 104, 254, 7, 4, 17, 2, 0, 255}).Deliver();
    EXPECT_EQ(LinesStartingWith(Report(), "apn1_pdp_qos"),
              Lines{"apn1_pdp_qos:json:[{"
                    "\"connection id\":5,"
                    "\"delay class\":4,"
                    "\"reliability class\":3,"
                    "\"peak throughput (octets)\":256000,"
                    "\"precedence class\":\"Normal priority\","
                    "\"Mean throughput(octet/h)\":\"Best effort\","
                    "\"Traffic Class\":\"Interactive class\","
                    "\"delivery order\":\"With delivery order (yes)\","
                    "\"del of error SDU\":\"Erroneous SDU deliver (yes)\","
                    "\"max SDU size(octets)\":1520,"
                    "\"UL max bit rate(kbps)\":384,"
                    "\"DL max bit rate(kbps)\":8640,"
                    "\"residual ber\":\"1*10^(-5)\","
                    "\"SDU error ratio\":\"1*10^(-4)\","
                    "\"Transfer delay(ms)\":250,"
                    "\"Traffic priority\":2,"
                    "\"Guar Bit rate UL(kbps)\":\"subscribed max rate\","
                    "\"Guar Bit rate dL(kbps)\":0}]"});
}

// The neighbour families sit between apn1_pdp_qos and irat_cm1.
TEST_F(UmtsOpInfoTest, NeighboursFollowTheQosProfile) {
    rt::test::RatMeasResponse response;
    response.Valid().Set8(24, 1).Cell(26, 12, 8, 950);
    qmi_test::Modem modem(R"({"raw_response": {"0x09": ")" + response.Hex() + R"("}})");
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    QosPacket({5}).Deliver();
    const std::string report = Report();
    const size_t qos = report.find("apn1_pdp_qos:json:");
    const size_t intra = report.find("intra_psc1:n:12\nintra_ecno1:n:8\nintra_rscp1:n:950\n");
    const size_t gsm = report.find("irat_cellid6::No data available!\n");
    const size_t flag = report.find("irat_cm1::");
    ASSERT_NE(qos, std::string::npos) << report;
    ASSERT_NE(intra, std::string::npos) << report;
    ASSERT_NE(gsm, std::string::npos) << report;
    EXPECT_LT(qos, intra);
    EXPECT_LT(gsm, flag);
    EXPECT_EQ(LinesStartingWith(report, "intra_psc").size(), 6u);
    EXPECT_EQ(LinesStartingWith(report, "inter_rssi").size(), 6u);
}

}  // namespace
