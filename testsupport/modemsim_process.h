// build/bin/modemsim on sockets of a test's own, with a scenario patch, and
// the environment that points a daemon at it.
//
//   rt::test::ModemsimProcess modem(R"({"qmi": {"delay_ms": 50}})");
//   ASSERT_TRUE(modem.ready()) << modem.process().Stderr();
//   options.env = modem.DaemonEnv();          // QMI_DEVICE and DIAG_DEVICE
//
// Or both at once, the daemon pointed at the modem:
//
//   rt::test::ModemAndDaemon world(R"({"wcdma": {"period_ms": 100}})");
//   ASSERT_TRUE(world.started()) << world.Errors();
//   world.daemon().Request("radionwinfo", "1");
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"

namespace rt::test {

// Sockets, or pseudo-terminals that clients open as devices (qmi_link()
// and diag_link() name them).
enum class ModemLink { kSockets, kPtys };

class ModemsimProcess {
  public:
    // `scenario` is JSON text merged over modemsim's built-in scenario;
    // `args` are added to its command line.
    explicit ModemsimProcess(const std::string& scenario = "{}", std::vector<std::string> args = {},
                             ModemLink link = ModemLink::kSockets);
    bool ready() const { return ready_; }
    ChildProcess& process() { return *process_; }
    std::string qmi_endpoint() const {
        return ptys_ ? "pty:" + qmi_link() : "unix:" + dir_.file("qmi.sock");
    }
    std::string diag_endpoint() const {
        return ptys_ ? "pty:" + diag_link() : "unix:" + dir_.file("diag.sock");
    }
    std::string qmi_link() const { return dir_.file("qmi.tty"); }
    std::string diag_link() const { return dir_.file("diag.tty"); }
    // QMI_DEVICE and DIAG_DEVICE as a client names them.
    std::vector<std::string> DaemonEnv() const {
        if (ptys_) return {"QMI_DEVICE=" + qmi_link(), "DIAG_DEVICE=" + diag_link()};
        return {"QMI_DEVICE=" + qmi_endpoint(), "DIAG_DEVICE=" + diag_endpoint()};
    }

  private:
    TempDir dir_;
    bool ptys_;
    std::unique_ptr<ChildProcess> process_;
    bool ready_ = false;
};

// A WCDMA world held still (no drift, no handover, no location update, one
// RAB), so that reports can be checked against the world's own values.
inline constexpr const char* kStillWcdmaWorld = R"({"wcdma": {
    "period_ms": 100, "handover_period_ms": 3600000,
    "mobility": {"update_ms": 0}, "bearers": {"rab_period_ms": 3600000},
    "drift": {"ecio": 0, "rscp": 0, "gsm_rssi": 0, "carrier_rssi": 0, "tx_power": 0,
              "cqi": 0, "rate": 0, "bler": 0}}})";

// modemsim with `scenario`, then a daemon (with `options`) that uses it.
class ModemAndDaemon {
  public:
    explicit ModemAndDaemon(const std::string& scenario = "{}", DaemonOptions options = {});
    bool started() const { return daemon_ && daemon_->started(); }
    // Both processes' standard error, for a failed start.
    std::string Errors();
    ModemsimProcess& modem() { return modem_; }
    ChildProcess& modemsim() { return modem_.process(); }
    DaemonFixture& daemon() { return *daemon_; }

  private:
    ModemsimProcess modem_;
    std::unique_ptr<DaemonFixture> daemon_;
};

}  // namespace rt::test
