// The UMTS neighbour families from the modem's measurement alone: entries
// numbered across inter-frequency blocks, the counts that mean "no list",
// and counts past the lists and the buffer. The intra-frequency cells' raw
// values are UmtsOpInfoTest's and UmtsOpInfoProcess's.
#include "reports/wcdma/umts_neighbours.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/qnx/slogf.h"
#include "qmi/vendor_client.h"
#include "service/report_writer.h"
#include "testsupport/qmi_test_support.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::LinesStartingWith;
using rt::test::RatMeasResponse;
using Lines = std::vector<std::string>;

class UmtsNeighboursTest : public testing::Test {
  protected:
    void TearDown() override { ResetVendorQmiForTest(); }
    // The attributes published for a modem answering `response`.
    std::string Publish(const RatMeasResponse& response) {
        qmi_test::Modem modem(R"({"raw_response": {"0x09": ")" + response.Hex() + R"("}})");
        EXPECT_TRUE(modem.started()) << modem.error();
        radioTavoraInitializeQmi();
        return PublishNow();
    }
    std::string PublishNow() {
        return rt::test::WrittenReport(
            [](ReportWriter& report) { GetUmtsMeasurementInfoUsingQmi(report); });
    }
};

TEST_F(UmtsNeighboursTest, InterFrequencyEntriesRunAcrossBlocks) {
    RatMeasResponse response;
    response.Valid().Set16(166, 2).Set16(172, 4).Set16(274, 5);
    for (unsigned c = 0; c < 4; ++c) response.Cell(174 + 12 * c, 100 + c, -10, -95);
    for (unsigned c = 0; c < 5; ++c) response.Cell(276 + 12 * c, 200 + c, -2, 7);
    std::string report = Publish(response);
    EXPECT_EQ(LinesStartingWith(report, "inter_psc"),
              (Lines{"inter_psc1:n:100", "inter_psc2:n:101", "inter_psc3:n:102", "inter_psc4:n:103",
                     "inter_psc5:n:200", "inter_psc6:n:201"}));
    // RSCP / Ec/Io truncated toward zero: -95 / -10 = 9, 7 / -2 = -3.
    EXPECT_EQ(LinesStartingWith(report, "inter_rssi"),
              (Lines{"inter_rssi1:n:9", "inter_rssi2:n:9", "inter_rssi3:n:9", "inter_rssi4:n:9",
                     "inter_rssi5:n:-3", "inter_rssi6:n:-3"}));
}

TEST_F(UmtsNeighboursTest, GsmCellsAndTheCountsThatMeanNoList) {
    RatMeasResponse response;
    response.Valid().Set8(24, 0xFF).Set16(166, 0xFFFF).Set16(372, 3);
    for (unsigned g = 0; g < 3; ++g) {
        response.Set16(374 + 10 * g, 60 + g).Set16(376 + 10 * g, 20 + g);
        response.Set16(378 + 10 * g, static_cast<uint16_t>(-80 - int(g)));
    }
    std::string report = Publish(response);
    EXPECT_EQ(LinesStartingWith(report, "intra_psc").size(), 6u);
    EXPECT_EQ(report.find("intra_psc1:n"), std::string::npos);
    EXPECT_EQ(report.find("inter_psc1:n"), std::string::npos);
    EXPECT_EQ(LinesStartingWith(report, "irat_system"),
              (Lines{"irat_system1::GSM", "irat_system2::GSM", "irat_system3::GSM",
                     "irat_system4::No data available!", "irat_system5::No data available!",
                     "irat_system6::No data available!"}));
    EXPECT_EQ(LinesStartingWith(report, "irat_gsm_rssi3"), Lines{"irat_gsm_rssi3:n:-82"});
    EXPECT_EQ(LinesStartingWith(report, "irat_cellid1"), Lines{"irat_cellid1::No data available!"});
}

TEST_F(UmtsNeighboursTest, CountsPastTheListsAndTheBufferAreCut) {
    RatMeasResponse response;
    for (size_t at = 26; at < 1331; at += 2) response.Set16(at, 3);
    response.Valid().Set8(24, 200).Set16(166, 9).Set16(172, 200).Set16(274, 200).Set16(372, 254);
    std::string report = Publish(response);
    // Eight intra-frequency cells fit the list: entries 7 and 8 too, no 9.
    EXPECT_EQ(LinesStartingWith(report, "intra_psc8"), Lines{"intra_psc8:n:3"});
    EXPECT_TRUE(LinesStartingWith(report, "intra_psc9").empty());
    EXPECT_EQ(LinesStartingWith(report, "inter_psc").size(), 6u);
    // 95 whole GSM cells fit between offset 374 and the end of the buffer.
    EXPECT_EQ(LinesStartingWith(report, "irat_system").size(), 95u);
    EXPECT_TRUE(LinesStartingWith(report, "irat_system96").empty());
}

TEST_F(UmtsNeighboursTest, EcIoOfZeroGivesNoRatio) {
    EXPECT_EQ(InterFrequencyRssi(-95, 0), std::nullopt);
    EXPECT_EQ(InterFrequencyRssi(-32768, -1), 32768);
}

TEST_F(UmtsNeighboursTest, AnLtePayloadOrAClosedChannelPublishesNothing) {
    RatMeasResponse lte;
    lte.Valid(4).Set8(24, 2);
    EXPECT_EQ(Publish(lte), "");
    ResetVendorQmiForTest();
    SlogCapture capture;
    EXPECT_EQ(PublishNow(), "");
    EXPECT_TRUE(capture.contains(
        qmi_test::Line("GetUmtsMeasurementInfoUsingQmi",
                       "Error in sending & processing RAT_MEAS_QMI req: Error = %d", 22)));
}

}  // namespace
