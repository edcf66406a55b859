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

class ModemsimProcess {
  public:
    // `scenario` is JSON text merged over modemsim's built-in scenario;
    // `args` are added to its command line.
    explicit ModemsimProcess(const std::string& scenario = "{}",
                             std::vector<std::string> args = {});
    bool ready() const { return ready_; }
    ChildProcess& process() { return *process_; }
    std::string qmi_endpoint() const { return "unix:" + dir_.file("qmi.sock"); }
    std::string diag_endpoint() const { return "unix:" + dir_.file("diag.sock"); }
    std::vector<std::string> DaemonEnv() const {
        return {"QMI_DEVICE=" + qmi_endpoint(), "DIAG_DEVICE=" + diag_endpoint()};
    }

  private:
    TempDir dir_;
    std::unique_ptr<ChildProcess> process_;
    bool ready_ = false;
};

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
