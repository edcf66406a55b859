// lteopinfo from a real DIAG capture: ppsd, devsim and radio_tavora as
// processes, the daemon's DIAG library replaying the capture file once the
// log mask goes on. The serving cell must be the one the capture's own
// 0xB0C2 records describe (packet version 2, widened by the DIAG library to
// the version-3 layout the report reads).
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using rt::test::LinesStartingWith;
using Lines = std::vector<std::string>;

constexpr const char* kCapture = "mi-core_qmdl_example.qmdl";

std::string ReportHolding(DaemonFixture& daemon, const std::string& line) {
    return daemon.ReportHolding("lteopinfo", rt::test::kStatusEutraObject, {line});
}

TEST(LteCaptureProcess, ServingCellOfTheQmdlExample) {
    if (!rt::test::HaveCaptures())
        GTEST_SKIP() << "captures folder " << rt::test::CapturesDir() << " is absent";
    rt::test::TempDir dir;
    DaemonOptions options;
    options.env = {"DIAG_DEVICE=file:" + rt::test::CapturesDir() + "/" + kCapture,
                   "QMI_DEVICE=unix:" + dir.file("no-modem.sock")};
    DaemonFixture daemon(options);
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();

    std::string before = ReportHolding(daemon, "lte_pci::No data available!");
    EXPECT_EQ(LinesStartingWith(before, "lte_band:"), Lines{"lte_band::13"}) << before;

    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    std::string report = ReportHolding(daemon, "lte_pci:n:87");
    // PCI 87, EARFCN 5780 / 23780, 50 resource blocks each way (10 MHz),
    // cell 0x086D0B0F, TAC 0x8740, band 17, 310-410; the TAI is the sum
    // 310 + 34624 + 410. (lte_bandwidth is not written with a cell, so the
    // status object keeps the earlier report's value.)
    Lines cell;
    for (const char* name :
         {"lte_mcc:", "lte_mnc:", "lte_cellid:", "lte_tac:", "lte_pci:", "lte_tai:", "lte_dl_freq:",
          "lte_ul_freq:", "lte_dl_bandwidth:", "lte_ul_bandwidth:", "lte_band:", "lte_category:"}) {
        for (const std::string& line : LinesStartingWith(report, name)) cell.push_back(line);
    }
    EXPECT_EQ(cell, (Lines{"lte_mcc:n:310", "lte_mnc:n:410", "lte_cellid:n:141363983",
                           "lte_tac:n:34624", "lte_pci:n:87", "lte_tai:n:35344",
                           "lte_dl_freq:n:5780", "lte_ul_freq:n:23780", "lte_dl_bandwidth:n:10",
                           "lte_ul_bandwidth:n:10", "lte_band:n:17", "lte_category:n:3"}))
        << report;
    // No modem answers the GERAN request: no GERAN attribute, the failure logged.
    EXPECT_EQ(report.find("num_geran_meas"), std::string::npos) << report;
    EXPECT_NE(daemon.daemon().Stderr().find(
                  "publishLteIratGeranInfo : Error in sending & processing RAT_MEAS_QMI req"),
              std::string::npos);
}

// Newer packet versions, brought to the report's layout by the DIAG
// library: each capture's serving cell (and, where it has 0xB179, the
// serving-cell measurement) as decoded independently of this code. A
// capture is replayed whole, so the report shows one of its intact
// packets; the PCI picks the packet and the rest must agree with it.
struct CaptureCell {
    const char* file;
    Lines cell;        // attribute lines that must all be there together
    int rsrp_low = 0;  // lte_rsrp bounds when the capture has 0xB179
    int rsrp_high = 0;
};

class LteCaptureVersions : public testing::TestWithParam<CaptureCell> {};

TEST_P(LteCaptureVersions, ReportShowsTheCapturesServingCell) {
    if (!rt::test::HaveCaptures())
        GTEST_SKIP() << "captures folder " << rt::test::CapturesDir() << " is absent";
    const CaptureCell& capture = GetParam();
    rt::test::TempDir dir;
    DaemonOptions options;
    options.env = {"DIAG_DEVICE=file:" + rt::test::CapturesDir() + "/" + capture.file,
                   "QMI_DEVICE=unix:" + dir.file("no-modem.sock")};
    DaemonFixture daemon(options);
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    std::string report = ReportHolding(daemon, capture.cell.front());
    for (const std::string& line : capture.cell)
        EXPECT_NE(report.find(line + "\n"), std::string::npos) << line << " in\n" << report;
    if (capture.rsrp_low == 0) return;
    Lines rsrp = LinesStartingWith(report, "lte_rsrp:n:");
    ASSERT_EQ(rsrp.size(), 1u) << report;
    int value = std::atoi(rsrp[0].c_str() + std::string("lte_rsrp:n:").size());
    EXPECT_GE(value, capture.rsrp_low) << rsrp[0];
    EXPECT_LE(value, capture.rsrp_high) << rsrp[0];
}

// RSRP bounds: the decoded dBm range, through the report's integer
// division (raw / 16 truncated, then - 180). A v3 serving cell with a v4
// measurement, a multi-SIM capture, a newer phone's v4; the other captures'
// translated values are CaptureVersionsTest's.
INSTANTIATE_TEST_SUITE_P(
    Captures, LteCaptureVersions,
    testing::Values(
        CaptureCell{"mi-core_tmobile.mi2log",
                    {"lte_pci:n:42", "lte_dl_freq:n:2075", "lte_ul_freq:n:20075", "lte_band:n:4",
                     "lte_mcc:n:310", "lte_mnc:n:260", "lte_tac:n:45057", "lte_cellid:n:5665794",
                     "lte_earfcn:n:2075", "lte_phycellid:n:42"},
                    -114,
                    -109},
        CaptureCell{"mi-core_Mi10_20201116_195935.mi2log",
                    {"lte_pci:n:162", "lte_dl_freq:n:1350", "lte_ul_freq:n:19350", "lte_band:n:3",
                     "lte_mcc:n:460", "lte_mnc:n:0"}},
        // From a first RSRP of -96.5 dBm, rising by about 1.6 dB over the capture.
        CaptureCell{
            "mi-core_ATT-iphone.mi2log", {"lte_phycellid:n:405", "lte_earfcn:n:5780"}, -97, -95}),
    [](const testing::TestParamInfo<CaptureCell>& info) {
        std::string name = info.param.file;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

}  // namespace
