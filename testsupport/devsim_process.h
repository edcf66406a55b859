// build/bin/devsim serving the phone's other services on the broker of this
// test process (PPS_SOCKET), from its built-in scenario with a JSON patch
// merged over it; Reload() changes the patch and sends SIGHUP.
//
//   rt::test::PpsBroker broker;
//   rt::test::DevsimProcess devsim(R"({"omadm": {"delay_ms": 800}})");
//   ASSERT_TRUE(devsim.ready()) << devsim.process().Stderr();
#pragma once

#include <memory>
#include <string>

#include "testsupport/child_process.h"

namespace rt::test {

class DevsimProcess {
  public:
    explicit DevsimProcess(const std::string& patch = "{}");
    bool ready() const { return ready_; }
    ChildProcess& process() { return *process_; }
    // Replaces the patch and reloads; true once devsim has taken it.
    bool Reload(const std::string& patch);

  private:
    TempDir dir_;
    std::string scenario_;
    std::unique_ptr<ChildProcess> process_;
    bool ready_ = false;
};

}  // namespace rt::test
