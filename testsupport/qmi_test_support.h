// For the tests of this folder: modemsim's QMI side in this process on a
// socket of its own (QMI_DEVICE points the library at it), and log lines
// formatted as the daemon writes them.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "qmi/reset_events.h"
#include "qmi/vendor_client.h"
#include "testsupport/child_process.h"
#include "tools/modemsim/qmi_side.h"
#include "tools/modemsim/scenario.h"

namespace qmi_test {

// "%30s : " + the rest, with the operation's name.
template <typename... Args>
std::string Line(const char* name, const char* rest, Args... args) {
    char text[512];
    std::string format = std::string("%30s : ") + rest;
    std::snprintf(text, sizeof text, format.c_str(), name, args...);
    return text;
}

class Modem {
  public:
    explicit Modem(const std::string& qmi_patch = "{}") {
        nlohmann::json scenario = modemsim::DefaultScenario();
        scenario["qmi"].merge_patch(nlohmann::json::parse(qmi_patch));
        std::string endpoint = "unix:" + dir_.file("qmi.sock");
        setenv("QMI_DEVICE", endpoint.c_str(), 1);
        side_ = std::make_unique<modemsim::QmiSide>(endpoint, scenario["qmi"]);
        started_ = side_->Start(&error_);
    }
    ~Modem() {
        // The daemon's handles go first, while the modem can still answer.
        ResetVendorQmiForTest();
        SetModemStateFd(-1);
        side_->Stop();
        unsetenv("QMI_DEVICE");
    }
    bool started() const { return started_; }
    const std::string& error() const { return error_; }

  private:
    rt::test::TempDir dir_;
    std::unique_ptr<modemsim::QmiSide> side_;
    bool started_ = false;
    std::string error_;
};

}  // namespace qmi_test
