// lteopinfo in the test's own process: the empty-store report, each source's
// values and the edge cases of their arithmetic, counts past what the
// snapshots and the measurement buffer hold, the GERAN neighbours from the
// modem, and the APN and PDN readers called for every entry.
#include "reports/lte/lte_op_info.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "platform/qnx/slogf.h"
#include "qmi/vendor_client.h"
#include "service/report_writer.h"
#include "testsupport/qmi_test_support.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::LinesStartingWith;
using rt::test::LogPacket;
using rt::test::RatMeasResponse;
using Lines = std::vector<std::string>;

// The report of an empty store, attribute by attribute in its order: a
// name alone has no data; "name=value" is a value the daemon always has.
std::string EmptyStoreReport() {
    std::istringstream names(
        "lte_mcc lte_mnc lte_cellid lte_tac lte_pci lte_tai lte_dl_freq lte_ul_freq "
        "lte_dl_bandwidth lte_ul_bandwidth lte_band=13 lte_category=3 lte_bandwidth=10Mhz "
        "lte_mimo_config=2x2 lte_earfcn lte_phycellid lte_rsrp lte_rsrq lte_nummeas "
        "lte_utran_uarfcn1 lte_utran_rscp1 lte_utran_uarfcn2 lte_utran_rscp2 lte_utran_uarfcn3 "
        "lte_utran_rscp3 lte_cdma_pilotpn1 lte_cdma_rssi1 lte_cdma_ecio1 lte_cdma_pilotpn2 "
        "lte_cdma_rssi2 lte_cdma_ecio2 lte_cdma_pilotpn3 lte_cdma_rssi3 lte_cdma_ecio3 "
        "rlc_dl_srb_num rlc_dl_drb_num rlc_ul_srb_num rlc_ul_drb_num lte_serv_cell_rssi lte_ue_id "
        "lte_mmegi lte_mmec lte_m_tmsi lte_s_tmsi lte_gummei lte_guti lte_ecgi lte_enb_id "
        "lte_global_enb_id");
    std::string report;
    for (std::string name; names >> name;) {
        size_t equals = name.find('=');
        report += equals == std::string::npos
                      ? name + "::No data available!\n"
                      : name.substr(0, equals) + "::" + name.substr(equals + 1) + "\n";
    }
    return report;
}

// The serving cell as the DIAG library delivers 0xB0C2: version 2's
// layout, the EARFCNs cut to 16 bits, then whole at 37 and 41.
struct Cell {
    unsigned pci = 87, dl = 5780, ul = 23780, dl_rb = 50, ul_rb = 50;
    uint32_t cell_id = 0x086D0B0F;
    unsigned tac = 100;
    uint32_t band = 17;
    unsigned mcc = 310, mnc = 410;
};
void DeliverCell(const Cell& c) {
    LogPacket(0xB0C2, 45)
        .Set8(12, 2)
        .Set16(13, c.pci)
        .Set16(15, std::min(c.dl, 65535u))
        .Set16(17, std::min(c.ul, 65535u))
        .Set8(19, c.dl_rb)
        .Set8(20, c.ul_rb)
        .Set32(21, c.cell_id)
        .Set16(25, c.tac)
        .Set32(27, c.band)
        .Set16(31, c.mcc)
        .Set16(34, c.mnc)
        .Set32(37, c.dl)
        .Set32(41, c.ul)
        .Deliver();
}

class LteOpInfoTest : public testing::Test {
  protected:
    void TearDown() override { ResetVendorQmiForTest(); }
    std::string Report() { return harness_.Run("lteopinfo"); }
    // The report's lines from the first one starting with `first` up to,
    // not including, the first one starting with `end`.
    Lines Section(const std::string& first, const std::string& end) {
        Lines all = LinesStartingWith(Report(), "");
        auto from = std::find_if(all.begin(), all.end(),
                                 [&](const std::string& l) { return l.rfind(first, 0) == 0; });
        auto to = std::find_if(from, all.end(),
                               [&](const std::string& l) { return l.rfind(end, 0) == 0; });
        return Lines(from, to);
    }
    rt::test::ReportHarness harness_;
};

TEST_F(LteOpInfoTest, EmptyStoreNoModemNoServices) {
    ASSERT_TRUE(harness_.ok());
    SlogCapture capture;
    EXPECT_EQ(Report(), EmptyStoreReport());
    // The failed GERAN request is logged in the step's name; every APN leaf
    // and every PDN was asked for, and each failed on its own.
    EXPECT_TRUE(capture.contains(
        qmi_test::Line("publishLteIratGeranInfo",
                       "Error in sending & processing RAT_MEAS_QMI req: Error = %d", 22)));
    const Lines texts = capture.texts();
    auto count = [&](const std::string& part) {
        return std::count_if(texts.begin(), texts.end(), [&](const std::string& t) {
            return t.find(part) != std::string::npos;
        });
    };
    EXPECT_EQ(count("Failed to open /pps/services/omadm/radio/control"), 20);
    EXPECT_EQ(count("ERROR: /pps/services/cds/vesta/status"), 4);
}

TEST_F(LteOpInfoTest, ServingCellRows) {
    Cell cell;
    cell.tac = 100;
    cell.dl_rb = 50;
    cell.ul_rb = 7;
    cell.cell_id = 0x80000001;  // published as a signed 32-bit number
    DeliverCell(cell);
    EXPECT_EQ(Section("lte_mcc", "lte_earfcn"),
              (Lines{"lte_mcc:n:310", "lte_mnc:n:410", "lte_cellid:n:-2147483647", "lte_tac:n:100",
                     "lte_pci:n:87", "lte_tai:n:820", "lte_dl_freq:n:5780", "lte_ul_freq:n:23780",
                     "lte_dl_bandwidth:n:10", "lte_ul_bandwidth:n:0", "lte_band:n:17",
                     "lte_category:n:3", "lte_mimo_config::2x2"}));
}

TEST_F(LteOpInfoTest, TaiSumWrapsAsAnInteger) {
    Cell cell;
    cell.mcc = 0xFFFF;
    cell.tac = 0xFFFF;
    cell.mnc = 0xFFFF;
    DeliverCell(cell);
    EXPECT_EQ(LinesStartingWith(Report(), "lte_tai"), Lines{"lte_tai:n:196605"});
}

struct MeasurementCase {
    int16_t rsrp;
    int16_t rsrq;
    const char* rsrp_line;
    const char* rsrq_line;
};

TEST_F(LteOpInfoTest, RsrpAndRsrqTruncateTowardZero) {
    const MeasurementCase cases[] = {
        {1000, 200, "lte_rsrp:n:-118", "lte_rsrq:n:-18"},
        {-8, -8, "lte_rsrp:n:-180", "lte_rsrq:n:-30"},
        {-17, -31, "lte_rsrp:n:-181", "lte_rsrq:n:-31"},
        {15, 17, "lte_rsrp:n:-180", "lte_rsrq:n:-29"},
    };
    for (const MeasurementCase& c : cases) {
        LogPacket(0xB179, 356)
            .Set8(12, 2)
            .Set16(16, 5780)
            .Set16(18, 185)
            .Set16(22, static_cast<uint16_t>(c.rsrp))
            .Set16(26, static_cast<uint16_t>(c.rsrq))
            .Set32(352, 5780)
            .Deliver();
        EXPECT_EQ(Section("lte_earfcn", "lte_nummeas"),
                  (Lines{"lte_earfcn:n:5780", "lte_phycellid:n:185", c.rsrp_line, c.rsrq_line}))
            << c.rsrp << " " << c.rsrq;
    }
}

// num_utran_meas is the packet's count; the entries are cut to the 31 the
// snapshot holds, each with the one UARFCN and its own RSCP.
TEST_F(LteOpInfoTest, WcdmaNeighbours) {
    for (unsigned count : {0u, 3u, 200u}) {
        LogPacket packet(0xB19B, 532);
        packet.Set16(16, 10700).Set8(18, count);
        for (unsigned i = 1; i <= 31; ++i) packet.Set16(32 + 16 * i, static_cast<uint16_t>(-i));
        packet.Deliver();
        Lines want = {"num_utran_meas:n:" + std::to_string(count)};
        for (unsigned i = 1; i <= std::min(count, 31u); ++i) {
            want.push_back("lte_utran_uarfcn" + std::to_string(i) + ":n:10700");
            want.push_back("lte_utran_rscp" + std::to_string(i) + ":n:-" + std::to_string(i));
        }
        EXPECT_EQ(Section("num_utran_meas", "lte_cdma"), want) << count;
    }
}

TEST_F(LteOpInfoTest, CdmaNeighbours) {
    LogPacket(0xB185, 217)
        .Set16(25, 100)
        .Set16(27, static_cast<uint16_t>(-70))
        .Set16(29, static_cast<uint16_t>(-12))
        .Set16(31, 200)
        .Set16(37, 300)
        .Set16(41, static_cast<uint16_t>(-3))
        .Deliver();
    EXPECT_EQ(Section("lte_cdma", "rlc_"),
              (Lines{"lte_cdma_pilotpn1:n:100", "lte_cdma_rssi1:n:-70", "lte_cdma_ecio1:n:-12",
                     "lte_cdma_pilotpn2:n:200", "lte_cdma_rssi2:n:0", "lte_cdma_ecio2:n:0",
                     "lte_cdma_pilotpn3:n:300", "lte_cdma_rssi3:n:0", "lte_cdma_ecio3:n:-3"}));
}

struct RssiCase {
    unsigned version;
    uint32_t word;
    const char* line;
};

TEST_F(LteOpInfoTest, ServingCellRssi) {
    const RssiCase cases[] = {
        {3, 1600u << 10, "lte_serv_cell_rssi:n:-10"},
        {3, 1601u << 10, "lte_serv_cell_rssi::No data available!"},
        {2, 1600u << 10, "lte_serv_cell_rssi::No data available!"},
        {3, 0, "lte_serv_cell_rssi:n:-110"},
        {3, 17u << 10, "lte_serv_cell_rssi:n:-109"},
        // Bits outside 10 to 23 are not part of the value.
        {3, 0xFF0003FFu | (800u << 10), "lte_serv_cell_rssi:n:-60"},
    };
    for (const RssiCase& c : cases) {
        LogPacket(0xB17F, 39).Set8(12, c.version).Set32(32, c.word).Deliver();
        EXPECT_EQ(LinesStartingWith(Report(), "lte_serv_cell_rssi"), Lines{c.line})
            << c.version << " " << c.word;
    }
}

struct IdentityCase {
    const char* name;
    unsigned valid;
    unsigned type;
    Lines first_lines;  // the identity section's lines up to lte_mmec
};

TEST_F(LteOpInfoTest, UeIdentityKindsAndValidity) {
    const IdentityCase cases[] = {
        {"guti", 1, 6, {"lte_guti_id::guti", "lte_mmegi:n:32769", "lte_mmec:n:66"}},
        {"imsi", 1, 1, {"lte_imsi_id::imsi", "lte_mmegi:n:32769", "lte_mmec:n:66"}},
        {"type 3", 1, 3, {"lte_mmegi:n:32769", "lte_mmec:n:66"}},
        {"not valid",
         0,
         6,
         {"lte_ue_id::No data available!", "lte_mmegi::No data available!",
          "lte_mmec::No data available!"}},
    };
    for (const IdentityCase& c : cases) {
        LogPacket(0xB0EE, 31)
            .Set8(19, c.valid)
            .Set8(20, c.type)
            .Set16(24, 0x8001)
            .Set8(26, 0x42)
            .Deliver();
        Lines lines = Section("lte_ue_id", "lte_m_tmsi");
        if (lines.empty()) lines = Section("lte_imsi_id", "lte_m_tmsi");
        if (lines.empty()) lines = Section("lte_guti_id", "lte_m_tmsi");
        if (lines.empty()) lines = Section("lte_mmegi", "lte_m_tmsi");
        EXPECT_EQ(lines, c.first_lines) << c.name;
    }
}

TEST_F(LteOpInfoTest, UeIdentitySumsWrapInThirtyTwoBits) {
    Cell cell;
    cell.cell_id = 0xFFFFFF00;
    DeliverCell(cell);
    LogPacket(0xB0EE, 31)
        .Set8(16, 0x13)
        .Set8(17, 0x00)
        .Set8(18, 0x14)
        .Set8(19, 1)
        .Set8(20, 6)
        .Set16(24, 0x8001)
        .Set8(26, 0x42)
        .Set8(27, 0xC1)
        .Set8(28, 0x02)
        .Set8(29, 0x03)
        .Set8(30, 0x99)  // the M-TMSI's low byte is not read
        .Deliver();
    EXPECT_EQ(Section("lte_guti_id", "apn"),
              (Lines{"lte_guti_id::guti", "lte_mmegi:n:32769", "lte_mmec:n:66",
                     "lte_m_tmsi:n:-1056832768", "lte_s_tmsi:n:-1056832458", "lte_gummei:n:33555",
                     "lte_guti:n:-1056799213", "lte_ecgi:n:318771968", "lte_enb_id:n:-256",
                     "lte_global_enb_id:n:318771968"}));
}

TEST_F(LteOpInfoTest, UeIdentityWithoutServingCellUsesZeros) {
    LogPacket(0xB0EE, 31).Set8(19, 1).Set8(20, 1).Set16(24, 5).Set8(26, 6).Deliver();
    EXPECT_EQ(Section("lte_gummei", "lte_guti"), Lines{"lte_gummei:n:11"});
    EXPECT_EQ(LinesStartingWith(Report(), "lte_enb_id"), Lines{"lte_enb_id:n:0"});
}

// A type-4 payload: groups of cells (present flag, BSIC, RSSI).
struct GeranCell {
    unsigned present;
    unsigned bsic;
    int rssi;
};
RatMeasResponse GeranResponse(const std::vector<std::vector<GeranCell>>& groups) {
    RatMeasResponse response;
    response.Valid(4).Set8(276, static_cast<unsigned>(groups.size()));
    for (size_t g = 0; g < groups.size(); ++g) {
        const size_t group = 277 + 77 * g;
        response.Set8(group, static_cast<unsigned>(groups[g].size()));
        for (size_t e = 0; e < groups[g].size(); ++e) {
            const size_t at = group + 4 + 9 * e;
            response.Set8(at, groups[g][e].present)
                .Set8(at + 1, groups[g][e].bsic)
                .Set16(at + 2, static_cast<uint16_t>(groups[g][e].rssi));
        }
    }
    return response;
}
std::string PublishGeran(const RatMeasResponse& response) {
    RatMeasInfoResponse bytes;
    std::copy(response.bytes().begin(), response.bytes().end(), bytes.bytes);
    return rt::test::WrittenReport(
        [&](ReportWriter& report) { PublishLteGeranNeighbours(report, bytes); });
}

struct GeranCase {
    const char* name;
    RatMeasResponse response;
    const char* report;
};

TEST(PublishLteGeranNeighbours, Cases) {
    std::vector<GeranCell> five;
    for (unsigned e = 0; e < 5; ++e) five.push_back({1, 10 + e, -800 - 10 * int(e)});
    RatMeasResponse wrong_type = GeranResponse({five});
    wrong_type.Set8(11, 3);
    RatMeasResponse not_present = GeranResponse({five});
    not_present.Set8(10, 0);
    RatMeasResponse not_valid = GeranResponse({five});
    not_valid.Set8(12, 0);
    // Counts past the buffer: a 14th group would start at byte 1278 and a
    // ninth cell of group 12 at byte 1277; bytes there that look like cells
    // must not be taken for them.
    RatMeasResponse groups_past = GeranResponse({});
    groups_past.Set8(276, 14).Set8(1278, 1).Set8(1282, 1).Set8(1283, 7);
    RatMeasResponse cells_past = GeranResponse({});
    cells_past.Set8(276, 13).Set8(277 + 77 * 12, 9).Set8(1277, 1).Set8(1278, 7);
    RatMeasResponse last_cell = GeranResponse({});
    last_cell.Set8(276, 255)
        .Set8(277 + 77 * 12, 8)
        .Set8(277 + 77 * 12 + 4 + 63, 1)
        .Set8(277 + 77 * 12 + 4 + 64, 33);
    const GeranCase cases[] = {
        {"two groups of five", GeranResponse({five, five}),
         "lte_geran_bsic1:n:10\nlte_geran_rssi1:n:-80\nlte_geran_bsic2:n:11\n"
         "lte_geran_rssi2:n:-81\nlte_geran_bsic3:n:12\nlte_geran_rssi3:n:-82\n"
         "lte_geran_bsic4:n:13\nlte_geran_rssi4:n:-83\nlte_geran_bsic5:n:14\n"
         "lte_geran_rssi5:n:-84\nlte_geran_bsic6:n:10\nlte_geran_rssi6:n:-80\n"
         "lte_geran_bsic7:n:11\nlte_geran_rssi7:n:-81\nnum_geran_meas:n:7\n"},
        {"rssi truncates toward zero", GeranResponse({{{1, 5, -955}, {1, 6, 959}}}),
         "lte_geran_bsic1:n:5\nlte_geran_rssi1:n:-95\nlte_geran_bsic2:n:6\n"
         "lte_geran_rssi2:n:95\nnum_geran_meas:n:2\n"},
        {"absent cells take no number", GeranResponse({{{0, 1, 0}, {1, 2, -600}}, {{0, 3, 0}}}),
         "lte_geran_bsic1:n:2\nlte_geran_rssi1:n:-60\nnum_geran_meas:n:1\n"},
        {"no groups", GeranResponse({}), "num_geran_meas:n:0\n"},
        {"rat type 3", wrong_type, ""},
        {"not present", not_present, ""},
        {"no data", not_valid, ""},
        {"group count past the buffer", groups_past, "num_geran_meas:n:0\n"},
        {"cell count past the group", cells_past, "num_geran_meas:n:0\n"},
        {"last cell of the last group", last_cell,
         "lte_geran_bsic1:n:33\nlte_geran_rssi1:n:0\nnum_geran_meas:n:1\n"},
    };
    for (const GeranCase& c : cases) EXPECT_EQ(PublishGeran(c.response), c.report) << c.name;
}

TEST_F(LteOpInfoTest, GeranNeighboursFromTheModemSitBeforeTheRlcSection) {
    qmi_test::Modem modem(R"({"raw_response": {"0x09": ")" +
                          GeranResponse({{{1, 17, -702}}}).Hex() + R"("}})");
    ASSERT_TRUE(modem.started()) << modem.error();
    radioTavoraInitializeQmi();
    EXPECT_EQ(Section("lte_cdma_ecio3", "rlc_dl_srb_num"),
              (Lines{"lte_cdma_ecio3::No data available!", "lte_geran_bsic1:n:17",
                     "lte_geran_rssi1:n:-70", "num_geran_meas:n:1"}));
}

}  // namespace
