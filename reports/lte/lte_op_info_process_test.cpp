// lteopinfo end to end with the phone's other services: ppsd, modemsim,
// devsim (connection service, network interfaces, OMA-DM client) and
// radio_tavora as processes. The GERAN cells come from modemsim's type-4
// answer, the twenty APN leaves from devsim's OMA-DM client, the PDNs from
// its connection service; the report's own attributes and the leaves' small
// reports all land in diag/status_eutra.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/modemsim_process.h"
#include "testsupport/report_harness.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using rt::test::LinesStartingWith;
using Lines = std::vector<std::string>;

TEST(LteOpInfoProcess, GeranApnLeavesAndPdnsFromTheServices) {
    // The LTE world's GERAN neighbours held still.
    DaemonOptions options;
    options.create_omadm_control = true;
    // A busy OMA-DM service: every leaf still gets its answer.
    options.devsim_scenario = R"({"omadm": {"delay_ms": 700}})";
    rt::test::ModemAndDaemon world(R"({"lte": {"drift": {"geran_rssi": 0}}})", options);
    ASSERT_TRUE(world.started()) << world.Errors();
    DaemonFixture& daemon = world.daemon();
    // lteopinfo does not open the QMI client itself; radionwinfo does.
    ASSERT_NE(daemon.Request("radionwinfo", "1", std::nullopt), "");

    std::string reply = daemon.Request("lteopinfo", "2", std::nullopt);
    ASSERT_NE(reply.find("res::lteopinfo\n"), std::string::npos) << reply;
    std::string report = daemon.ReadObject(rt::test::kStatusEutraObject);

    // modemsim's groups: (12, -955), (40, -701) and (7, -1020) in tenths of a dBm.
    EXPECT_EQ(LinesStartingWith(report, "lte_geran_"),
              (Lines{"lte_geran_bsic1:n:12", "lte_geran_rssi1:n:-95", "lte_geran_bsic2:n:40",
                     "lte_geran_rssi2:n:-70", "lte_geran_bsic3:n:7", "lte_geran_rssi3:n:-102"}))
        << report;
    EXPECT_EQ(LinesStartingWith(report, "num_geran_meas"), Lines{"num_geran_meas:n:3"});

    // Five leaves of each of the four entries, in the order asked.
    Lines leaves = LinesStartingWith(report, "lte_apn");
    Lines expected;
    const char* names[] = {"vzwims", "vzwadmin", "vzwinternet", "vzwapp"};
    for (int n = 1; n <= 4; ++n) {
        const std::string entry = "lte_apn" + std::to_string(n) + "_";
        expected.push_back(entry + "Id::" + std::to_string(n));
        expected.push_back(entry + "Ip::" + (n == 1 ? "IPv6" : "IPv4v6"));
        expected.push_back(entry + "Enabled::true");
        expected.push_back(entry + "Timer::0");
        expected.push_back(entry + "Name::" + names[n - 1]);
    }
    expected.push_back("lte_apn:: ");
    std::sort(leaves.begin(), leaves.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(leaves, expected) << report;

    // Connected PDNs only: carrier_ims (1) and internet (3).
    EXPECT_EQ(LinesStartingWith(report, "apn1_name"), Lines{"apn1_name::vzwims"});
    EXPECT_EQ(LinesStartingWith(report, "apn3_name"), Lines{"apn3_name::vzwinternet"});
    EXPECT_TRUE(LinesStartingWith(report, "apn2_").empty()) << report;
    EXPECT_TRUE(LinesStartingWith(report, "apn4_").empty()) << report;
}

// A daemon whose OMA-DM service never answers.
DaemonOptions WithSilentOmadm() {
    DaemonOptions options;
    options.create_omadm_control = true;
    options.devsim_scenario = R"({"omadm": {"delay_ms": 600000}})";
    return options;
}

// An OMA-DM service that never answers holds one report for one bounded
// wait; the leaves after it, and the next report's, are not asked.
TEST(LteOpInfoProcess, DeadOmadmServiceCostsOneWait) {
    DaemonFixture daemon(WithSilentOmadm());
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();
    for (const char* id : {"1", "2"}) {
        ASSERT_NE(daemon.Request("lteopinfo", id).find("res::lteopinfo\n"), std::string::npos);
    }
    std::string report = daemon.ReadObject(rt::test::kStatusEutraObject);
    EXPECT_TRUE(LinesStartingWith(report, "lte_apn").empty()) << report;
    EXPECT_EQ(LinesStartingWith(report, "apn3_name"), Lines{"apn3_name::vzwinternet"});
    EXPECT_EQ(daemon.daemon().CountInStderr("no answer for node Id of APN 1 within 2000 ms"), 1);
    EXPECT_EQ(daemon.daemon().CountInStderr("answers; node"), 39);
}

// A termination signal while the daemon waits for an OMA-DM answer ends the
// wait at once: the daemon stops cleanly and never reports the wait as
// timed out.
TEST(LteOpInfoProcess, TerminationEndsAnOmadmWait) {
    DaemonFixture daemon(WithSilentOmadm());
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();
    daemon.Request("lteopinfo", "1", std::nullopt, 1);  // not waited for
    ASSERT_TRUE(daemon.devsim().WaitForStderr("get_leaf_node")) << daemon.devsim().Stderr();
    EXPECT_EQ(daemon.Stop(SIGTERM), 0) << daemon.daemon().Stderr();
    EXPECT_EQ(daemon.daemon().CountInStderr("no answer for node"), 0) << daemon.daemon().Stderr();
}

}  // namespace
