// umtsopinfo and bearer end to end: ppsd, modemsim, devsim and
// radio_tavora as processes. modemsim's WCDMA world is held still (no
// drift, no handover, no location update, one RAB) so that each report can
// be checked against the world's own values; the PDNs come from devsim's
// connection service, the neighbours from modemsim's type-3 answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "testsupport/daemon_fixture.h"
#include "testsupport/modemsim_process.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using rt::test::LinesStartingWith;
using Lines = std::vector<std::string>;

constexpr const char* kTetheringUp = R"({
    "pdns": {"tethering": {"connected": true}},
    "interfaces": {"rmnet4": {"connected": true, "ip_addresses": ["192.168.42.2/24"],
                              "nameservers": ["192.168.42.1"]}}})";

class UmtsOpInfoProcess : public testing::Test {
  protected:
    void Start(const std::string& devsim_patch) {
        DaemonOptions options;
        options.devsim_scenario = devsim_patch;
        world_ = std::make_unique<rt::test::ModemAndDaemon>(rt::test::kStillWcdmaWorld, options);
        ASSERT_TRUE(world_->started()) << world_->Errors();
        daemon_ = &world_->daemon();
        // umtsopinfo does not open the QMI client itself; radionwinfo does.
        ASSERT_NE(daemon_->Request("radionwinfo", "1", std::nullopt), "");
        ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    }

    std::unique_ptr<rt::test::ModemAndDaemon> world_;
    DaemonFixture* daemon_ = nullptr;
};

TEST_F(UmtsOpInfoProcess, ReportShowsTheWorldAndBothPdns) {
    Start(kTetheringUp);
    std::string report = daemon_->ReportHolding(
        "umtsopinfo", rt::test::kStatusUtraObject,
        {"mm_reject::Updated", "gmm_reject::GMM GU1 Updated", "drx:n:7", "irat_cm1::off"});
    EXPECT_EQ(LinesStartingWith(report, "t3212"), Lines{"t3212::Not supported!"});

    EXPECT_EQ(LinesStartingWith(report, "apn1_"),
              (Lines{"apn1_name::vzwinternet", "apn1_ipv4_addr::100.66.12.9/29",
                     "apn1_ipv6_addr::fe80::5c:2/64",
                     "apn1_dns_ip_addr::198.224.166.135,198.224.167.135,",
                     R"q(apn1_pdp_qos:json:[{"connection id":5,"delay class":4,)q"
                     R"q("reliability class":3,"peak throughput (octets)":256000,)q"
                     R"q("precedence class":"Normal priority",)q"
                     R"q("Mean throughput(octet/h)":"Best effort",)q"
                     R"q("Traffic Class":"Interactive class",)q"
                     R"q("delivery order":"Without delivery order (no)",)q"
                     R"q("del of error SDU":"Erroneous SDU not deliver (no)",)q"
                     R"q("max SDU size(octets)":1520,"UL max bit rate(kbps)":384,)q"
                     R"q("DL max bit rate(kbps)":8640,"residual ber":"1*10^(-5)",)q"
                     R"q("SDU error ratio":"1*10^(-4)",)q"
                     R"q("Transfer delay":"Subscribed transfer delay","Traffic priority":1,)q"
                     R"q("Guar Bit rate UL(kbps)":"subscribed max rate",)q"
                     R"q("Guar Bit rate dL(kbps)":"subscribed max rate"}])q"}))
        << report;
    EXPECT_EQ(LinesStartingWith(report, "apn2_"),
              (Lines{"apn2_name::vzwinternet", "apn2_ipv4_addr::192.168.42.2/24",
                     "apn2_ipv6_addr::No data available!", "apn2_dns_ip_addr::192.168.42.1,"}));

    // The serving carrier's cells outside the active set (PSC 100 and 200),
    // the two other carriers' three cells, the two GSM cells.
    EXPECT_EQ(LinesStartingWith(report, "intra_psc"),
              (Lines{"intra_psc1:n:300", "intra_psc2:n:400", "intra_psc3::No data available!",
                     "intra_psc4::No data available!", "intra_psc5::No data available!",
                     "intra_psc6::No data available!"}));
    EXPECT_EQ(LinesStartingWith(report, "inter_psc").size(), 6u);
    EXPECT_EQ(LinesStartingWith(report, "inter_psc3"), Lines{"inter_psc3:n:25"});
    EXPECT_EQ(LinesStartingWith(report, "irat_ch"),
              (Lines{"irat_ch1:n:128", "irat_ch2:n:130", "irat_ch3::No data available!",
                     "irat_ch4::No data available!", "irat_ch5::No data available!",
                     "irat_ch6::No data available!"}));
}

TEST_F(UmtsOpInfoProcess, BearerShowsTheRabSetUpLast) {
    Start("{}");
    std::string report = daemon_->ReportHolding("bearer", rt::test::kStatusDataObject,
                                                {"rab_domain::PS", "rab_id:n:5"});
    // The object keeps its attributes in the order they first appeared: an
    // earlier report without the QoS packet put rab_traffic_class first.
    Lines rab = LinesStartingWith(report, "rab_");
    std::sort(rab.begin(), rab.end());
    EXPECT_EQ(rab, (Lines{"rab_ber::1*10^(-5)", "rab_data_rate::Best effort", "rab_domain::PS",
                          "rab_gbr::subscribed max rate", "rab_id:n:5", "rab_mbr:n:8640",
                          "rab_traffic_class::Interactive class"}))
        << report;
}

// What the screen's tool shows: with no report named, or "all", every one
// of the eight reports is asked for and shown from its own object, and the
// QoS profile is a table of its members.
TEST_F(UmtsOpInfoProcess, FieldtestShowsEveryReportAndTheQosTable) {
    Start("{}");
    daemon_->ReportHolding("umtsopinfo", rt::test::kStatusUtraObject, {"drx:n:7", "irat_cm1::off"});
    daemon_->ReportHolding("umtsopinfo", rt::test::kStatusUtraObject,
                           {"gmm_reject::GMM GU1 Updated"});
    const std::string fieldtest = std::string(RT_BIN_DIR) + "/fieldtest";
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{fieldtest}, std::vector<std::string>{fieldtest, "all"}}) {
        rt::test::ChildProcess screen(args, {daemon_->broker().env()});
        ASSERT_EQ(screen.Wait(30000), 0) << screen.Stderr();
        const std::string out = screen.Stdout();
        for (const char* header :
             {"== radionwinfo (status_utra) ==", "== radiostats (status_utra) ==",
              "== umtsopinfo (status_utra) ==", "== hspaopinfo (status_utra) ==",
              "== lteopinfo (status_eutra) ==", "== bearer (status_data) ==",
              "== tchtxpwr (status_utra) ==", "== 3gpp2info (status_3gpp2) =="})
            EXPECT_NE(out.find(header), std::string::npos) << header << "\n" << out;
        EXPECT_EQ(out.find("dmstats"), std::string::npos) << out;
    }
    rt::test::ChildProcess screen({fieldtest, "umtsopinfo"}, {daemon_->broker().env()});
    ASSERT_EQ(screen.Wait(30000), 0) << screen.Stderr();
    const std::string out = screen.Stdout();
    EXPECT_NE(out.find("  apn1_pdp_qos (1)\n    attribute "), std::string::npos) << out;
    // A row per member: its name, then its value right-aligned.
    auto has_row = [&](const std::string& member, const std::string& value) {
        for (const std::string& line : LinesStartingWith(out, "    " + member + " ")) {
            if (line.size() >= value.size() &&
                line.compare(line.size() - value.size(), value.size(), value) == 0)
                return true;
        }
        return false;
    };
    EXPECT_TRUE(has_row("Traffic Class", " Interactive class")) << out;
    EXPECT_TRUE(has_row("Transfer delay", " Subscribed transfer delay")) << out;
    EXPECT_TRUE(has_row("DL max bit rate(kbps)", " 8640")) << out;
}

}  // namespace
