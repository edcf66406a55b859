// radionwinfo: the merge of the modem's UMTS measurement with the active
// and monitored sets of the log, the identities and the reselection values,
// and counts in the payload and the snapshots past what their lists hold.
// modemsim's QMI side answers the measurement request with the exact
// response each test builds.
#include "reports/wcdma/radio_nw_info.h"

#include <gtest/gtest.h>

#include "qmi/vendor_client.h"
#include "testsupport/qmi_test_support.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::LinesStartingWith;
using rt::test::LogPacket;
using rt::test::RatMeasResponse;

using Lines = std::vector<std::string>;

// Entries from..6 of a family, without data.
Lines NoDataEntries(std::initializer_list<const char*> names, int from) {
    Lines lines;
    for (int n = from; n <= 6; ++n)
        for (const char* name : names)
            lines.push_back(std::string(name) + std::to_string(n) + "::No data available!");
    return lines;
}
Lines Concat(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// An active-set cell of 0x4110: PSC at +1 and cell id at +8 of 12-byte cell k.
LogPacket& ActiveSetCell(LogPacket& packet, unsigned k, unsigned psc, uint32_t cellid) {
    return packet.Set16(15 + 12 * k + 1, psc).Set32(15 + 12 * k + 8, cellid);
}

class RadioNwInfoTest : public testing::Test {
  protected:
    void TearDown() override { ResetVendorQmiForTest(); }
    // modemsim answers the measurement request with `response`.
    void ModemAnswers(const RatMeasResponse& response) {
        modem_ = std::make_unique<qmi_test::Modem>(R"({"raw_response": {"0x09": ")" +
                                                   response.Hex() + R"("}})");
        ASSERT_TRUE(modem_->started()) << modem_->error();
    }
    std::string Report() { return harness_.Run("radionwinfo"); }

    rt::test::ReportHarness harness_;
    std::unique_ptr<qmi_test::Modem> modem_;
};

TEST_F(RadioNwInfoTest, NoModemAndNoPacketsGiveNoDataEverywhere) {
    ASSERT_TRUE(harness_.ok());
    rt::test::TempDir nowhere;
    setenv("QMI_DEVICE", ("unix:" + nowhere.file("no-modem.sock")).c_str(), 1);
    std::string report = Report();
    Lines expected =
        NoDataEntries({"aset_arfcn", "aset_sc", "aset_cellid", "aset_ecio", "aset_rscp"}, 1);
    expected.push_back("scell_uarfcn::No data available!");
    expected = Concat(
        expected,
        NoDataEntries({"mset_uarfcn", "mset_sc", "mset_cellid", "mset_ecio", "mset_rscp"}, 1));
    for (const char* name : {"cell_status", "scell_ura", "scell_cellid", "scell_mcc", "scell_mnc",
                             "scell_lac", "scell_rac"})
        expected.push_back(std::string(name) + "::No data available!");
    expected = Concat(expected, NoDataEntries({"aset_mcc", "aset_mnc", "aset_lac", "aset_rac"}, 1));
    expected = Concat(expected, NoDataEntries({"mset_mcc", "mset_mnc", "mset_lac", "mset_rac"}, 1));
    expected = Concat(expected, NoDataEntries({"squal", "srxlev"}, 1));
    EXPECT_EQ(LinesStartingWith(report, ""), expected);
    EXPECT_EQ(report.find("scell_sc:"), std::string::npos);
    unsetenv("QMI_DEVICE");
}

TEST_F(RadioNwInfoTest, MatchedActiveSetCellsCarryTheModemsSignalValues) {
    RatMeasResponse response;
    response.Valid().Set8(25, 2);
    response.Cell(106, 100, 10, 900);
    response.Cell(116, 200, 20, 950);
    ModemAnswers(response);
    LogPacket active(0x4110, 87);
    active.Set8(12, 3).Set16(13, 10700);
    ActiveSetCell(active, 0, 200, 0x2002);
    ActiveSetCell(active, 1, 100, 0x1001);
    ActiveSetCell(active, 2, 300, 0x3003);
    active.Deliver();
    // 0x7135: PLMN 310/410, LAC 0x1234, RAC 7; 0x4005: Squal/Srxlev of three cells.
    LogPacket(0x7135, 21)
        .Set8(14, 0x13)
        .Set8(15, 0x00)
        .Set8(16, 0x14)
        .Set16(17, 0x1234)
        .Set8(19, 7)
        .Deliver();
    LogPacket reselection(0x4005, 558);
    for (unsigned i = 0; i < 3; ++i)
        reselection.Set16(19 + 10 * i, 40 + i)
            .Set16(22 + 10 * i, static_cast<uint16_t>(-(10 + int(i))));
    reselection.Deliver();

    std::string report = Report();
    // The serving cell is the modem's first, whatever the log's order (its
    // other values: WcdmaReportsProcess).
    EXPECT_EQ(LinesStartingWith(report, "scell_sc"), Lines{"scell_sc:n:100"});
    EXPECT_EQ(LinesStartingWith(report, "aset_sc"),
              Concat({"aset_sc1:n:100", "aset_sc2:n:200", "aset_sc3:n:300"},
                     NoDataEntries({"aset_sc"}, 4)));
    EXPECT_EQ(LinesStartingWith(report, "aset_cellid"),
              Concat({"aset_cellid1:n:4097", "aset_cellid2:n:8194", "aset_cellid3:n:12291"},
                     NoDataEntries({"aset_cellid"}, 4)));
    EXPECT_EQ(LinesStartingWith(report, "aset_ecio"),
              Concat({"aset_ecio1:n:-5", "aset_ecio2:n:-10", "aset_ecio3::No data available!"},
                     NoDataEntries({"aset_ecio"}, 4)));
    // Three active-set entries: identities and reselection values for 1 to 3.
    EXPECT_EQ(LinesStartingWith(report, "aset_mcc"),
              Concat({"aset_mcc1:n:310", "aset_mcc2:n:310", "aset_mcc3:n:310"},
                     NoDataEntries({"aset_mcc"}, 4)));
    EXPECT_EQ(
        LinesStartingWith(report, "squal"),
        Concat({"squal1:n:-10", "squal2:n:-11", "squal3:n:-12"}, NoDataEntries({"squal"}, 4)));
    EXPECT_EQ(
        LinesStartingWith(report, "srxlev"),
        Concat({"srxlev1:n:40", "srxlev2:n:41", "srxlev3:n:42"}, NoDataEntries({"srxlev"}, 4)));
    // No monitored set: its identity family has no data.
    EXPECT_EQ(LinesStartingWith(report, "mset_mcc"), NoDataEntries({"mset_mcc"}, 1));
}

TEST_F(RadioNwInfoTest, WithoutTheModemLogCellsArePublishedInLogOrder) {
    LogPacket active(0x4110, 87);
    active.Set8(12, 4).Set16(13, 10700);
    ActiveSetCell(active, 0, 200, 1);
    ActiveSetCell(active, 1, 0, 9);  // PSC 0 matches nothing: not published
    ActiveSetCell(active, 2, 100, 2);
    ActiveSetCell(active, 3, 300, 3);
    active.Deliver();
    std::string report = Report();
    EXPECT_EQ(report.find("scell_sc:"), std::string::npos) << report;
    EXPECT_EQ(LinesStartingWith(report, "aset_sc"),
              Concat({"aset_sc1:n:200", "aset_sc2:n:100", "aset_sc3:n:300"},
                     NoDataEntries({"aset_sc"}, 4)));
    EXPECT_EQ(LinesStartingWith(report, "aset_ecio"), NoDataEntries({"aset_ecio"}, 1));
}

TEST_F(RadioNwInfoTest, SixMatchedCellsFillTheSetAndDoubleProductsAreExact) {
    RatMeasResponse response;
    response.Valid().Set8(25, 6);
    LogPacket active(0x4110, 87);
    active.Set8(12, 6).Set16(13, 10700);
    for (unsigned j = 0; j < 6; ++j) {
        response.Cell(106 + 10 * j, 10 + j, 0, 1013);
        ActiveSetCell(active, j, 10 + j, j);
    }
    ModemAnswers(response);
    active.Deliver();
    LogPacket(0x7135, 21).Set8(14, 0x13).Set8(15, 0xF0).Set8(16, 0x01).Deliver();
    std::string report = Report();
    // Raw 0 gives negative zero; raw 1013 gives -101.30000000000001.
    EXPECT_EQ(LinesStartingWith(report, "aset_ecio6"), Lines{"aset_ecio6:n:-0"});
    EXPECT_EQ(LinesStartingWith(report, "aset_rscp1"), Lines{"aset_rscp1:n:-101.30000000000001"});
    EXPECT_EQ(report.find("aset_sc6::No data"), std::string::npos);
    EXPECT_EQ(LinesStartingWith(report, "aset_rac6"), Lines{"aset_rac6:n:0"});
    EXPECT_EQ(LinesStartingWith(report, "scell_mnc"), Lines{"scell_mnc:n:10"});
    // 0x4005 is absent: reselection values have no data whatever the set holds.
    EXPECT_EQ(LinesStartingWith(report, "srxlev"), NoDataEntries({"srxlev"}, 1));
}

TEST_F(RadioNwInfoTest, MonitoredSetMatchesOnTheServingFrequencyAndSkipsEmptyBlocks) {
    RatMeasResponse response;
    response.Valid().Set16(20, 10700).Set8(24, 1).Set16(166, 1);
    response.Cell(26, 6, 14, 1010);
    // An inter-frequency block on the same UARFCN with no cells contributes nothing.
    response.Set16(168, 10700).Set16(172, 0);
    ModemAnswers(response);
    LogPacket monitored(0x4111, 694);
    monitored.Set8(12, 1)
        .Set16(13, 10700)
        .Set8(15, 2)
        .Set16(16, 5)
        .Set32(19, 55)
        .Set16(23, 6)
        .Set32(26, 66);
    monitored.Deliver();
    LogPacket(0x7135, 21).Set8(14, 0x13).Set8(15, 0x00).Set8(16, 0x14).Deliver();
    std::string report = Report();
    EXPECT_EQ(LinesStartingWith(report, "mset_sc"),
              Concat({"mset_sc1:n:6", "mset_sc2:n:5"}, NoDataEntries({"mset_sc"}, 3)));
    EXPECT_EQ(LinesStartingWith(report, "mset_rscp"),
              Concat({"mset_rscp1:n:-101", "mset_rscp2::No data available!"},
                     NoDataEntries({"mset_rscp"}, 3)));
    EXPECT_EQ(
        LinesStartingWith(report, "mset_cellid"),
        Concat({"mset_cellid1:n:66", "mset_cellid2:n:55"}, NoDataEntries({"mset_cellid"}, 3)));
    // Two monitored entries: the identities are repeated for 1 and 2.
    EXPECT_EQ(LinesStartingWith(report, "mset_mcc"),
              Concat({"mset_mcc1:n:310", "mset_mcc2:n:310"}, NoDataEntries({"mset_mcc"}, 3)));
}

TEST_F(RadioNwInfoTest, CountsPastEveryListStayInsideTheirLists) {
    RatMeasResponse response;
    for (size_t at = 26; at < 1331; at += 2) response.Set16(at, 7);  // every cell PSC 7
    response.Valid().Set16(20, 10700).Set8(24, 255).Set8(25, 255).Set16(166, 65535);
    response.Set16(168, 10800).Set16(172, 65535).Set16(270, 10800).Set16(274, 65535);
    ModemAnswers(response);
    LogPacket active(0x4110, 87);
    active.Set8(12, 255).Set16(13, 10700);
    for (unsigned k = 0; k < 6; ++k) ActiveSetCell(active, k, 7, k);
    active.Deliver();
    LogPacket monitored(0x4111, 694);
    monitored.Set8(12, 255);
    for (unsigned f = 0; f < 3; ++f) {
        monitored.Set16(13 + 227 * f, 10800).Set8(13 + 227 * f + 2, 255);
        for (unsigned d = 0; d < 32; ++d) monitored.Set16(13 + 227 * f + 3 + 7 * d, 7);
    }
    monitored.Deliver();
    std::string report = Report();
    EXPECT_EQ(LinesStartingWith(report, "aset_sc").size(), 6u) << report;
    EXPECT_EQ(report.find("aset_sc6::No data"), std::string::npos) << report;
    EXPECT_EQ(LinesStartingWith(report, "mset_uarfcn"),
              (Lines{"mset_uarfcn1:n:10800", "mset_uarfcn2:n:10800", "mset_uarfcn3:n:10800",
                     "mset_uarfcn4:n:10800", "mset_uarfcn5:n:10800", "mset_uarfcn6:n:10800"}));
    EXPECT_EQ(report.find("7::"), std::string::npos) << "no entry 7: " << report;
}

TEST_F(RadioNwInfoTest, BarredCellAndIdentity) {
    LogPacket(0x4127, 28).Set32(20, 0x0ABCDEF1).Set16(24, 77).Set8(26, 0xFE).Deliver();
    std::string report = Report();
    EXPECT_EQ(LinesStartingWith(report, "cell_status"), Lines{"cell_status::Cell Barred"});
    EXPECT_EQ(LinesStartingWith(report, "scell_ura"), Lines{"scell_ura:n:77"});
    EXPECT_EQ(LinesStartingWith(report, "scell_cellid"), Lines{"scell_cellid:n:180150001"});
    LogPacket(0x4127, 28).Set8(26, 0x01).Deliver();
    EXPECT_EQ(LinesStartingWith(Report(), "cell_status"), Lines{"cell_status::Cell Not Barred"});
}

struct PlmnCase {
    uint8_t o1, o2, o3;
    int mcc, mnc;
};

TEST(DecodePlmnBcd, TwoAndThreeDigitMnc) {
    for (PlmnCase c : {PlmnCase{0x13, 0xF0, 0x01, 310, 10}, PlmnCase{0x13, 0x00, 0x14, 310, 410},
                       PlmnCase{0x62, 0xF2, 0x10, 262, 1}, PlmnCase{0x32, 0x54, 0x76, 234, 675}}) {
        Plmn plmn = DecodePlmnBcd(c.o1, c.o2, c.o3);
        EXPECT_EQ(plmn.mcc, c.mcc) << std::hex << int(c.o1) << " " << int(c.o2);
        EXPECT_EQ(plmn.mnc, c.mnc) << std::hex << int(c.o2) << " " << int(c.o3);
    }
}

}  // namespace
