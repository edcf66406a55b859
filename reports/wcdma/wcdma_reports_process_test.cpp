// The WCDMA reports end to end: ppsd, modemsim and radio_tavora as real
// processes. modemsim's WCDMA world is held still (no drift, no handover)
// so that each report can be checked against the world's own values; the
// log mask goes on through diag/config as the screen does it.
#include <gtest/gtest.h>

#include "testsupport/daemon_fixture.h"
#include "testsupport/modemsim_process.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::LinesStartingWith;
using Lines = std::vector<std::string>;

TEST(WcdmaReportsProcess, ReportsShowTheModemsWorld) {
    rt::test::ModemAndDaemon world(rt::test::kStillWcdmaWorld);
    ASSERT_TRUE(world.started()) << world.Errors();
    DaemonFixture& daemon = world.daemon();
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    auto report_holding = [&](const char* name, const Lines& lines) {
        return daemon.ReportHolding(name, rt::test::kStatusUtraObject, lines);
    };

    std::string tch = report_holding(
        "tchtxpwr", {"dch_tx_pwr:n:-5", "dch_utra_rssi:n:-72", "dch_sir::Not supported!"});
    EXPECT_EQ(
        LinesStartingWith(tch, "dch_"),
        (Lines{"dch_tx_pwr:n:-5", "dch_tx_pwr_step:n:1", "dch_tx_pwr_algo::PCA1",
               R"(dch_bler:json:[{"bler0":0,"tr_channel_id0":5},{"bler1":12,"tr_channel_id1":6}])",
               "dch_utra_rssi:n:-72", "dch_sir::Not supported!", "dch_sir_target::Not supported!",
               "dch_bler_target::Not supported!", "dch_avgcalls::Not supported!"}));

    std::string hspa = report_holding("hspaopinfo", {"hsdpa_cqi_num:n:22", "hsdpa_rate:n:4200",
                                                     "hsdpa_bler:n:12", "hspa_ue_state:n:2"});
    EXPECT_EQ(LinesStartingWith(hspa, "hsdpa_cqi"),
              (Lines{"hsdpa_cqi_type::Type A CQI", "hsdpa_cqi_num:n:22"}));
    EXPECT_EQ(LinesStartingWith(hspa, "hspa_ue_state"), Lines{"hspa_ue_state:n:2"});
    EXPECT_EQ(LinesStartingWith(hspa, "hspa_irat_ch"), Lines{"hspa_irat_ch:n:128"});

    // The measurement and the log agree on the active set {100, 200} and the
    // intra-frequency cells {300, 400}: all four carry signal values.
    std::string nw =
        report_holding("radionwinfo", {"scell_mcc:n:310", "scell_uarfcn:n:10700",
                                       "scell_cellid:n:45123001", "mset_sc5:n:400", "squal1:n:19"});
    EXPECT_EQ(LinesStartingWith(nw, "scell_"),
              (Lines{"scell_sc:n:100", "scell_ecio:n:-5", "scell_rscp:n:-90",
                     "scell_uarfcn:n:10700", "scell_ura:n:3", "scell_cellid:n:45123001",
                     "scell_mcc:n:310", "scell_mnc:n:410", "scell_lac:n:11023", "scell_rac:n:7"}));
    EXPECT_EQ(LinesStartingWith(nw, "aset_sc"),
              (Lines{"aset_sc1:n:100", "aset_sc2:n:200", "aset_sc3::No data available!",
                     "aset_sc4::No data available!", "aset_sc5::No data available!",
                     "aset_sc6::No data available!"}));
    EXPECT_EQ(LinesStartingWith(nw, "aset_rscp2"), Lines{"aset_rscp2:n:-95"});
    EXPECT_EQ(LinesStartingWith(nw, "cell_status"), Lines{"cell_status::Cell Not Barred"});
    for (const char* psc : {"n:300", "n:400"}) {
        bool listed = false;
        for (const std::string& line : LinesStartingWith(nw, "mset_sc"))
            listed = listed || line.ends_with(psc);
        EXPECT_TRUE(listed) << psc << " in\n" << nw;
    }
    EXPECT_EQ(nw.find("mset_ecio1::No data"), std::string::npos) << nw;
}

}  // namespace
