// The settings of diag/config end to end: ppsd, radio_tavora, modemsim,
// devsim and the shell-tool stand-ins as real processes. The screen's
// change goes to diag/config; modemsim's, devsim's and the stand-ins' logs
// show what reached the platform, and diag/config what was written back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/modemsim_process.h"

namespace {

using rt::test::ReadFile;

using rt::test::ChildProcess;
using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using ::testing::HasSubstr;
using ::testing::Not;

using rt::test::Eventually;

bool ObjectHolds(DaemonFixture& fixture, const char* path, const std::string& line) {
    return fixture.ObjectHolds(path, "\n" + line + "\n");
}

// --- no stale ENS at start -------------------------------------------------

TEST(SettingsAtStartTest, PersistedEnsValueIsNotSentAndQmiStaysClosed) {
    DaemonOptions options;
    options.config_lines = {"ens_value::1", "diaglogmask::0"};
    rt::test::ModemAndDaemon world("{}", options);
    ASSERT_TRUE(world.started()) << world.Errors();
    DaemonFixture& fixture = world.daemon();
    ChildProcess& modem = world.modemsim();
    // A later change is applied after the first read of diag/config; with
    // no QMI client open it is refused and written back.
    ASSERT_TRUE(fixture.WriteConfig({"ims_enable::1"}));
    ASSERT_TRUE(ObjectHolds(fixture, rt::test::kConfigObject, "ims_enable:n:0"))
        << fixture.daemon().Stderr();
    // The persisted ENS value was deleted at start; the rest stays.
    EXPECT_THAT(fixture.ReadObject(rt::test::kConfigObject), Not(HasSubstr("ens_value")));
    EXPECT_THAT(fixture.ReadObject(rt::test::kConfigObject), HasSubstr("\ndiaglogmask::0\n"));
    EXPECT_THAT(fixture.daemon().Stderr(), Not(HasSubstr("ENS value sent as part of QMI")));
    EXPECT_THAT(fixture.daemon().Stderr(),
                HasSubstr("SetIMSTestMode : Error in sending & processing "
                          "set_ims_throttle_stats_qmi: Error = 22"));
    EXPECT_EQ(modem.CountInStderr("qmi connection accepted"), 0);
    EXPECT_EQ(modem.CountInStderr("svc=0xe3"), 0);
}

// --- throttles and IMS test mode ------------------------------------------

class ThrottlesTest : public ::testing::Test {
  protected:
    // modemsim refusing the message ids in `refuse` (a JSON object), and a
    // daemon whose QMI client an ENS value has opened.
    void Start(const std::string& refuse) {
        world_ =
            std::make_unique<rt::test::ModemAndDaemon>(R"({"qmi": {"refuse": )" + refuse + "}}");
        ASSERT_TRUE(world_->started()) << world_->Errors();
        fixture_ = &world_->daemon();
        modem_ = &world_->modemsim();
        ASSERT_TRUE(fixture_->WriteConfig({"ens_value::1"}));
        ASSERT_TRUE(ModemGot("msg=0x1f tlv01=00", 1));
    }
    // Waits until modemsim has received `request` `times` times in all.
    bool ModemGot(const std::string& request, int times) {
        return Eventually([&] { return modem_->CountInStderr(request) >= times; });
    }
    int ModemCount(const std::string& request) { return modem_->CountInStderr(request); }
    bool ConfigHolds(const std::string& line) {
        return ObjectHolds(*fixture_, rt::test::kConfigObject, line);
    }

    std::unique_ptr<rt::test::ModemAndDaemon> world_;
    DaemonFixture* fixture_ = nullptr;
    ChildProcess* modem_ = nullptr;
};

struct StateCase {
    const char* attribute;
    const char* text;
    const char* request;  // what modemsim logs
};

TEST_F(ThrottlesTest, EachSwitchSendsItsStateAndOnlyOnexReadsBack) {
    Start(R"({"0x18": 71})");  // EVDO throttling refused
    const StateCase cases[] = {
        {"ims_enable", "1", "msg=0x1a tlv01=01"},  {"ims_enable", "true", "msg=0x1a tlv01=00"},
        {"ims_enable", "", "msg=0x1a tlv01=00"},   {"onex_enable", "1", "msg=0x16 tlv01=01"},
        {"evdo_enable", "1", "msg=0x18 tlv01=01"},
    };
    int seen_before = 0;
    for (const StateCase& c : cases) {
        seen_before = ModemCount(c.request);
        ASSERT_TRUE(fixture_->WriteConfig({std::string(c.attribute) + "::" + c.text}));
        EXPECT_TRUE(ModemGot(c.request, seen_before + 1)) << c.attribute << "=" << c.text << "\n"
                                                          << modem_->Stderr();
    }
    // The refused EVDO change is undone on the screen, as a number.
    EXPECT_TRUE(ConfigHolds("evdo_enable:n:0")) << fixture_->ReadObject(rt::test::kConfigObject);
    EXPECT_THAT(fixture_->daemon().Stderr(),
                HasSubstr("SetEVDOThrottle : Error in sending & processing "
                          "SetEVDOThrottle_stats_qmi: Error = 22"));
    // The accepted ones are not written back; the one 1x change was followed
    // by exactly one read-back, the IMS and EVDO changes by none.
    std::string config = fixture_->ReadObject(rt::test::kConfigObject);
    EXPECT_THAT(config, HasSubstr("\nims_enable::\n"));
    EXPECT_THAT(config, HasSubstr("\nonex_enable::1\n"));
    EXPECT_EQ(ModemCount("msg=0x15"), 1);
}

TEST_F(ThrottlesTest, RefusedOnexIsWrittenBackAndStillReadBack) {
    Start(R"({"0x16": 71})");
    ASSERT_TRUE(fixture_->WriteConfig({"onex_enable::0"}));
    ASSERT_TRUE(ModemGot("msg=0x15", 1)) << modem_->Stderr();
    EXPECT_EQ(ModemCount("msg=0x16 tlv01=00"), 1);
    EXPECT_TRUE(ConfigHolds("onex_enable:n:1")) << fixture_->ReadObject(rt::test::kConfigObject);
}

// --- tethering ---------------------------------------------------------------

// A change longer than the daemon's read buffer: the line the buffer cuts
// (`tether_enable::10` read as `tether_enable::1`) is dropped and logged,
// never applied; a hung tool then does not hold up the daemon's end.
TEST(TetheringProcessTest, CutLineIsNeverAppliedAndAHungToolDoesNotDelayTheEnd) {
    rt::test::TempDir dir;
    const char* path = std::getenv("PATH");
    DaemonOptions options;
    options.env = {"PATH=" + std::string(RT_SHELL_STANDINS_DIR) + ":" + (path ? path : ""),
                   "SHELL_STANDINS_LOG=" + dir.file("tools.log"),
                   "SHELL_STANDINS_HANG=msm_devctrl"};
    DaemonFixture fixture(options);
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    // The daemon reads "@config\n", the padding line, then the last line,
    // 4095 bytes in all: the last line ends one byte short.
    const std::string tether = "tether_enable::10";
    const size_t pad = 4095 - std::string("@config\n").size() - (tether.size() - 1) - 1;
    ASSERT_TRUE(fixture.WriteConfig({"pad::" + std::string(pad - 5, 'x'), tether}));
    EXPECT_TRUE(
        fixture.daemon().WaitForStderr("cut line 'tether_enable::1' and what follows dropped"))
        << fixture.daemon().Stderr();
    // A request answered: the daemon is done with that change (one thread).
    ASSERT_FALSE(fixture.Request("radiostats", "1").empty());
    EXPECT_EQ(ReadFile(dir.file("tools.log")), "") << "the cut line was applied";
    ASSERT_TRUE(fixture.WriteConfig({"tether_enable::1"}));
    ASSERT_TRUE(Eventually([&] { return ReadFile(dir.file("tools.log")) == "msm_devctrl -f0\n"; }))
        << "the hung tool did not start: " << ReadFile(dir.file("tools.log"));
    // The tool hangs for 30 s; the daemon ends long before (about a second
    // on an idle machine, more under sanitizers or load).
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(fixture.Stop(SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_THAT(fixture.daemon().Stderr(), HasSubstr("still running; left running"));
}

// --- APN name ----------------------------------------------------------------

TEST(ApnNameProcessTest, AcceptedNameReachesTheConnectionService) {
    DaemonFixture fixture;
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    ASSERT_TRUE(fixture.WriteConfig({"apn_name::myinternet"}));
    ASSERT_TRUE(fixture.devsim().WaitForStderr("msg::get_apn_setting"))
        << fixture.devsim().Stderr();
    EXPECT_THAT(fixture.devsim().Stderr(), HasSubstr("\"APN\":\"myinternet\""));
    // The connection service's status shows the internet PDN's new APN.
    EXPECT_TRUE(Eventually([&] {
        return fixture.ReadObject("/pps/services/cds/vesta/status")
                   .find("\"apn\":\"myinternet\"") != std::string::npos;
    }));
    EXPECT_THAT(fixture.ReadObject(rt::test::kConfigObject), HasSubstr("\napn_name::myinternet\n"));
}

TEST(ApnNameProcessTest, RefusedNameIsReplacedOnTheScreenByTheNameInForce) {
    DaemonOptions options;
    options.devsim_scenario = R"({"connection_service": {"refuse": {"set_apn_setting": 5}}})";
    DaemonFixture fixture(options);
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    ASSERT_TRUE(fixture.WriteConfig({"apn_name::other"}));
    EXPECT_TRUE(ObjectHolds(fixture, rt::test::kConfigObject, "apn_name::vzwinternet"))
        << fixture.daemon().Stderr();
    EXPECT_THAT(fixture.daemon().Stderr(),
                HasSubstr("SetAPNName : Failed to set APN name error 5"));
}

// --- enabled RATs ------------------------------------------------------------

TEST(EnabledRatsProcessTest, ModemReportAndMenuStayInStep) {
    DaemonFixture fixture;  // a WCDMA and LTE device; the modem starts at 18
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    // At start the first delta carries no enabled_rats, so the modem's 18
    // is taken and sent back; after that the daemon follows every report.
    ASSERT_TRUE(fixture.devsim().WaitForStderr("dat:json:{\"enabled_technologies\":18}"))
        << fixture.devsim().Stderr();
    // The modem reports WCDMA only: the menu follows and the setting is sent
    // back to radio control, which answers and reports it.
    ASSERT_TRUE(fixture.WriteObject(rt::test::kStatusPersistentObject,
                                    "configure_rats_state:json:{\"enabled_technologies\":2}\n"));
    EXPECT_TRUE(ObjectHolds(fixture, rt::test::kConfigObject, "enabled_rats::WCDMA"))
        << fixture.daemon().Stderr();
    const std::string kSentWcdma =
        "msg::configure_rats id::3323 dat:json:{\"enabled_technologies\":2}";
    ASSERT_TRUE(fixture.devsim().WaitForStderr(kSentWcdma)) << fixture.devsim().Stderr();
    EXPECT_TRUE(fixture.devsim().WaitForStderr("res::configure_rats"));
    // A menu choice this device cannot take: the menu shows the setting in
    // force again, and that setting is sent once more.
    ASSERT_TRUE(fixture.WriteConfig({"enabled_rats::CDMA_ONLY"}));
    EXPECT_TRUE(Eventually([&] { return fixture.devsim().CountInStderr(kSentWcdma) >= 2; }))
        << fixture.devsim().Stderr();
    EXPECT_TRUE(ObjectHolds(fixture, rt::test::kConfigObject, "enabled_rats::WCDMA"));
    // A choice it can take reaches status_persistent.
    ASSERT_TRUE(fixture.WriteConfig({"enabled_rats::WCDMA+LTE"}));
    EXPECT_TRUE(ObjectHolds(fixture, rt::test::kStatusPersistentObject,
                            "configure_rats_state:json:{\"enabled_technologies\":18}"));
}

}  // namespace
