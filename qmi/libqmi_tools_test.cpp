// modemsim and the daemon against a QMI stack written elsewhere: Debian's
// libqmi tools. qmicli opens modemsim's pseudo-terminal as a QMI device;
// libqmi's qmi-proxy shares it between the daemon (QMI_DEVICE=qmi-proxy:LINK)
// and qmicli, as ModemManager shares /dev/cdc-wdm0. The daemon reads DIAG
// from modemsim's other pseudo-terminal as from a serial port.
//
// libqmi names service 0xE3 "fox": qmicli's --fox-* options reach it.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <memory>

#include "testsupport/daemon_fixture.h"
#include "testsupport/eventually.h"
#include "testsupport/modemsim_process.h"

namespace {

using rt::test::ChildProcess;
using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using rt::test::ModemLink;
using rt::test::ModemsimProcess;

constexpr const char* kQmicli = "/usr/bin/qmicli";
constexpr const char* kQmiProxy = "/usr/libexec/qmi-proxy";

bool Installed(const char* program) {
    return ::access(program, X_OK) == 0;
}

// One qmicli run, started at once; Finish() waits for it.
struct Qmicli {
    explicit Qmicli(std::vector<std::string> args) {
        args.insert(args.begin(), kQmicli);
        process = std::make_unique<ChildProcess>(args);
    }
    // Exit status, then what it printed (standard output, then error).
    std::pair<int, std::string> Finish() {
        int status = process->Wait(20000);
        return {status, process->Stdout() + process->Stderr()};
    }
    std::unique_ptr<ChildProcess> process;
};

class LibqmiTools : public testing::Test {
  protected:
    void SetUp() override {
        if (!Installed(kQmicli) || !Installed(kQmiProxy))
            GTEST_SKIP() << "libqmi's tools are not installed (" << kQmicli << ", " << kQmiProxy
                         << ": Debian's libqmi-utils)";
    }
    void StartModem(const std::string& scenario = "{}") {
        modem_ = std::make_unique<ModemsimProcess>(scenario, std::vector<std::string>{},
                                                   ModemLink::kPtys);
        ASSERT_TRUE(modem_->ready()) << modem_->process().Stderr();
    }
    // qmi-proxy, then the daemon through it, its channel open (ENS 1).
    void StartDaemonThroughProxy() {
        if (::geteuid() != 0)
            GTEST_SKIP() << "qmi-proxy takes root's clients only; this test runs as uid "
                         << ::geteuid();
        // When another proxy (ModemManager's) holds the name already, this
        // one leaves and that one serves.
        proxy_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{kQmiProxy, "--no-exit", "--verbose"});
        proxy_->WaitForStderr("starting UNIX socket service");
        DaemonOptions options;
        options.env = {"QMI_DEVICE=qmi-proxy:" + modem_->qmi_link(),
                       "DIAG_DEVICE=" + modem_->diag_link()};
        daemon_ = std::make_unique<DaemonFixture>(options);
        ASSERT_TRUE(daemon_->started()) << daemon_->daemon().Stderr();
        ASSERT_TRUE(daemon_->WriteConfig({"ens_value::1"}));
        ASSERT_TRUE(modem_->process().WaitForStderr("msg=0x1f tlv01=00"))
            << modem_->process().Stderr() << proxy_->Stderr();
    }
    std::vector<std::string> QmicliArgs(bool through_proxy, std::vector<std::string> args) {
        std::vector<std::string> all{"-d", modem_->qmi_link(), "--device-open-qmi"};
        if (through_proxy) all.push_back("-p");
        all.insert(all.end(), args.begin(), args.end());
        return all;
    }
    bool ObjectHolds(const char* object, const std::string& needle) {
        return rt::test::Eventually(
            [&] { return daemon_->ReadObject(object).find(needle) != std::string::npos; });
    }

    std::unique_ptr<ModemsimProcess> modem_;
    std::unique_ptr<ChildProcess> proxy_;
    std::unique_ptr<DaemonFixture> daemon_;
};

TEST_F(LibqmiTools, QmicliGetsVersionInfoAndAClientOfServiceE3ComesAndGoes) {
    ASSERT_NO_FATAL_FAILURE(StartModem());
    // Opened with a sync and a version-info check, as libqmi can.
    auto [status, out] =
        Qmicli(QmicliArgs(false, {"--device-open-sync", "--device-open-version-info",
                                  "--get-service-version-info"}))
            .Finish();
    ASSERT_EQ(status, 0) << out;
    EXPECT_NE(out.find("ctl (1.5)"), std::string::npos) << out;
    EXPECT_NE(out.find("fox (1.0)"), std::string::npos) << out;
    EXPECT_EQ(modem_->process().CountInStderr("msg=0x27"), 1);

    // Allocated and kept, then released by a second run naming the id.
    std::tie(status, out) =
        Qmicli(QmicliArgs(false, {"--fox-noop", "--client-no-release-cid"})).Finish();
    ASSERT_EQ(status, 0) << out;
    size_t at = out.find("CID: '");
    ASSERT_NE(at, std::string::npos) << out;
    std::string cid = out.substr(at + 6, out.find('\'', at + 6) - at - 6);
    char released[16];
    std::snprintf(released, sizeof released, "tlv01=e3%02x", std::stoi(cid));
    EXPECT_EQ(modem_->process().CountInStderr("msg=0x23 "), 0);
    std::tie(status, out) =
        Qmicli(QmicliArgs(false, {"--fox-noop", "--client-cid=" + cid})).Finish();
    ASSERT_EQ(status, 0) << out;
    EXPECT_EQ(modem_->process().CountInStderr(std::string("msg=0x23 ") + released), 1)
        << modem_->process().Stderr();
    // A request on a client id that is gone is refused by the modem.
    std::tie(status, out) =
        Qmicli(QmicliArgs(false, {"--client-cid=" + cid, "--client-no-release-cid",
                                  "--fox-get-firmware-version=apps"}))
            .Finish();
    EXPECT_NE(status, 0);
    EXPECT_NE(out.find("InvalidClientId"), std::string::npos) << out;
}

TEST_F(LibqmiTools, DaemonAndQmicliShareTheModemThroughQmiProxy) {
    ASSERT_NO_FATAL_FAILURE(StartModem(rt::test::kStillWcdmaWorld));
    ASSERT_NO_FATAL_FAILURE(StartDaemonThroughProxy());
    if (IsSkipped()) return;
    ASSERT_TRUE(daemon_->WriteConfig({"diaglogmask::1"}));
    for (int round = 0; round < 3; ++round) {
        // qmicli's CTL and 0xE3 requests go while the daemon's are under way;
        // both number their transactions from 1 on their own client ids.
        Qmicli versions(QmicliArgs(true, {"--get-service-version-info"}));
        Qmicli firmware(QmicliArgs(true, {"--fox-get-firmware-version=apps"}));
        std::string reply = daemon_->Request("3gpp2info", std::to_string(round));
        EXPECT_NE(reply.find("res::3gpp2info\n"), std::string::npos) << reply;
        std::string report = daemon_->ReadObject(rt::test::kStatus3gpp2Object);
        EXPECT_NE(report.find("pesn::80A1B2C3\n"), std::string::npos) << report;
        EXPECT_NE(report.find("model::TAVORA-X1\n"), std::string::npos) << report;
        std::string nw = daemon_->ReportHolding(
            "radionwinfo", rt::test::kStatusUtraObject,
            {"scell_sc:n:100", "scell_ecio:n:-5", "scell_mcc:n:310", "scell_cellid:n:45123001"});
        EXPECT_NE(nw.find("scell_rscp:n:-90\n"), std::string::npos) << nw;

        auto [status, out] = versions.Finish();
        EXPECT_EQ(status, 0) << out;
        EXPECT_NE(out.find("fox (1.0)"), std::string::npos) << out;
        // modemsim knows no such message: qmicli gets that answer, not one
        // of the daemon's.
        std::tie(status, out) = firmware.Finish();
        EXPECT_NE(out.find("couldn't get firmware version: QMI protocol error (71)"),
                  std::string::npos)
            << out;
    }
    EXPECT_EQ(daemon_->daemon().CountInStderr("Error"), 0) << daemon_->daemon().Stderr();
}

TEST_F(LibqmiTools, ModemResetIsSeenThroughQmiProxy) {
    ASSERT_NO_FATAL_FAILURE(StartModem(R"({"qmi": {"reset_down_ms": 2000}})"));
    ASSERT_NO_FATAL_FAILURE(StartDaemonThroughProxy());
    if (IsSkipped()) return;
    ASSERT_TRUE(modem_->process().Signal(SIGUSR1));
    // The pseudo-terminal goes away: the proxy drops its clients.
    EXPECT_TRUE(ObjectHolds(rt::test::kStatusDataObject, "modem_state::modem is in reset mode\n"));
    EXPECT_TRUE(
        ObjectHolds(rt::test::kStatusDataObject, "modem_state::modem is out of reset mode\n"))
        << proxy_->Stderr();
    // Back in service; an ENS value opens the channel again.
    ASSERT_TRUE(daemon_->WriteConfig({"ens_value::0"}));
    ASSERT_TRUE(modem_->process().WaitForStderr("msg=0x1f tlv01=01")) << modem_->process().Stderr();
    daemon_->Request("3gpp2info", "6");
    EXPECT_TRUE(ObjectHolds(rt::test::kStatus3gpp2Object, "pesn::80A1B2C3\n"));
}

}  // namespace
