// The control channel end to end: ppsd, modemsim and radio_tavora as real
// processes. Settings go to diag/config, requests to the control server
// object; modemsim's log shows what the daemon sent.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/modemsim_process.h"
#include "testsupport/qmi_test_support.h"

namespace {

using qmi_test::Line;
using rt::test::DaemonFixture;

std::string Slog(const std::string& text) {
    return "slog 10000 6 " + text;
}

class ControlChannel : public testing::Test {
  protected:
    // modemsim with a scenario patch for "qmi", and the daemon using it.
    void Start(const std::string& qmi_patch = "{}") {
        world_ = std::make_unique<rt::test::ModemAndDaemon>(R"({"qmi": )" + qmi_patch + "}");
        ASSERT_TRUE(world_->started()) << world_->Errors();
        modem_ = &world_->modemsim();
        daemon_ = &world_->daemon();
    }
    bool ObjectHolds(const char* object, const std::string& needle) {
        return daemon_->ObjectHolds(object, needle);
    }

    std::unique_ptr<rt::test::ModemAndDaemon> world_;
    rt::test::ChildProcess* modem_ = nullptr;
    DaemonFixture* daemon_ = nullptr;
};

// Before any ENS value the report holds placeholders and nothing reaches
// the modem; ENS value 1 (sent as ENS byte 0) opens the channel and the
// report then carries the modem's identity.
TEST_F(ControlChannel, EnsOpensTheChannelAnd3gpp2InfoPublishesTheModemsIdentity) {
    Start();
    std::string reply = daemon_->Request("3gpp2info", "3");
    EXPECT_NE(reply.find("res::3gpp2info\n"), std::string::npos) << reply;
    // The broker keeps attributes in the order they were first written: the
    // order the placeholders were published in.
    EXPECT_EQ(daemon_->ReadObject(rt::test::kStatus3gpp2Object),
              "@status_3gpp2\n"
              "mob_fw::No data available!\n"
              "pesn::No data available!\n"
              "mob_p_rev::No data available!\n"
              "sci::No data available!\n"
              "model::No data available!\n");
    EXPECT_TRUE(daemon_->daemon().WaitForStderr(Slog(
        Line("Get3GPP2Info", "Error in sending & processing get_misc_info_qmi: Error = %d", 22))));
    EXPECT_EQ(modem_->CountInStderr("svc=0xe3"), 0);

    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::1"}));
    ASSERT_TRUE(modem_->WaitForStderr("msg=0x1f tlv01=00")) << modem_->Stderr();
    reply = daemon_->Request("3gpp2info", "17");
    EXPECT_NE(reply.find("id::17\n"), std::string::npos) << reply;
    std::string report = daemon_->ReadObject(rt::test::kStatus3gpp2Object);
    for (const char* line : {"pesn::80A1B2C3\n", "mob_fw::1.0.4\n", "mob_p_rev:n:6\n", "sci:n:2\n",
                             "model::TAVORA-X1\n"}) {
        EXPECT_NE(report.find(line), std::string::npos) << line << " in\n" << report;
    }
}

TEST_F(ControlChannel, ModemResetIsPublishedAndClosesTheChannelUntilReopened) {
    Start(R"({"reset_down_ms": 2000})");
    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::1"}));
    ASSERT_TRUE(modem_->WaitForStderr("msg=0x1f tlv01=00")) << modem_->Stderr();

    ASSERT_TRUE(modem_->Signal(SIGUSR1));
    EXPECT_TRUE(ObjectHolds(rt::test::kStatusDataObject, "modem_state::modem is in reset mode\n"));
    // While the client is gone, requests fail with 22.
    daemon_->Request("3gpp2info", "4");
    EXPECT_TRUE(daemon_->daemon().WaitForStderr(
        Slog(Line("radio_tavora_vendor_misc_info", "ERROR: QMI port not initialized"))));
    EXPECT_TRUE(
        ObjectHolds(rt::test::kStatusDataObject, "modem_state::modem is out of reset mode\n"));
    // Back in service, still closed until an ENS value opens it again.
    int failures_before = daemon_->daemon().CountInStderr("get_misc_info_qmi: Error = 22");
    daemon_->Request("3gpp2info", "5");
    EXPECT_EQ(daemon_->daemon().CountInStderr("get_misc_info_qmi: Error = 22"),
              failures_before + 1);

    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::0"}));
    ASSERT_TRUE(modem_->WaitForStderr("msg=0x1f tlv01=01")) << modem_->Stderr();
    daemon_->Request("3gpp2info", "6");
    EXPECT_TRUE(ObjectHolds(rt::test::kStatus3gpp2Object, "pesn::80A1B2C3\n"));
}

TEST_F(ControlChannel, DelayedAnswerTimesOutAndIsNotTakenForTheNextRequests) {
    // The first misc-information answer (pesn STALE000) comes after 3400 ms,
    // the second (pesn FRESH000) 1800 ms after its request, so the stale one
    // arrives while the second request waits.
    Start(R"({"delay_ms": {"0x14": [3400, 1800]},
                   "raw_response": {"0x14": ["02040000000000 100800 5354414c45303030",
                                             "02040000000000 100800 4652455348303030"]}})");
    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::1"}));
    ASSERT_TRUE(modem_->WaitForStderr("msg=0x1f tlv01=00")) << modem_->Stderr();

    auto start = std::chrono::steady_clock::now();
    std::string reply = daemon_->Request("3gpp2info", "1", std::nullopt);
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    EXPECT_NE(reply.find("id::1\n"), std::string::npos) << reply;
    EXPECT_TRUE(daemon_->daemon().WaitForStderr(
        Slog(Line("radio_tavora_vendor_misc_info",
                  "ERROR: Error in sending MISC_INOF_QMI req: Error = %d", -2))));
    // Given up after the library's 2 s time-out, well before the late answer.
    EXPECT_GE(took.count(), 1900);
    EXPECT_LT(took.count(), 3300);

    // The daemon keeps serving; the second request gets its own answer.
    reply = daemon_->Request("3gpp2info", "2", std::nullopt);
    EXPECT_NE(reply.find("id::2\n"), std::string::npos) << reply;
    std::string report = daemon_->ReadObject(rt::test::kStatus3gpp2Object);
    EXPECT_NE(report.find("pesn::FRESH000\n"), std::string::npos) << report;
    EXPECT_EQ(report.find("STALE"), std::string::npos) << report;
}

TEST_F(ControlChannel, TerminationEndsTheDaemonWhileItWaitsForTheModem) {
    // The answer would come after 1500 ms, inside the library's 2 s bound.
    Start(R"({"delay_ms": {"0x14": 1500}})");
    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::1"}));
    ASSERT_TRUE(modem_->WaitForStderr("msg=0x1f tlv01=00")) << modem_->Stderr();
    rt::test::PpsClientConnection control(rt::test::kControlObject, O_RDWR);
    ASSERT_TRUE(control.Write("msg::3gpp2info\nid::1\n"));
    ASSERT_TRUE(modem_->WaitForStderr("msg=0x14")) << modem_->Stderr();
    EXPECT_EQ(daemon_->Stop(SIGTERM), 0);
    EXPECT_TRUE(daemon_->daemon().WaitForStderr("radio_tavora PPS is terminated."));
    // The daemon was gone before the answer was due: modemsim saw it leave
    // and had nobody to send the answer to.
    ASSERT_TRUE(modem_->WaitForStderr("qmi connection closed"));
    EXPECT_EQ(modem_->CountInStderr("delayed answer sent"), 0) << modem_->Stderr();
}

}  // namespace
