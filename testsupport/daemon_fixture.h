// A running daemon for end-to-end tests: its own PPS broker, diag/config,
// build/bin/devsim playing the phone's other services (deviceinfo,
// status_persistent, the connection service, network interfaces, OMA-DM
// and radio control), then build/bin/radio_tavora with SLOGF_STDERR=1,
// started and waited for.
//
//   rt::test::DaemonFixture daemon;                  // broker + objects + daemon
//   ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();
//   std::string reply = daemon.Request("radiostats", "17");
//   std::string report = daemon.ReadObject(rt::test::kStatusUtraObject);
//
// The daemon's standard error holds both its err/warn lines and the
// mirrored slog lines, "slog 10000 6 <text>".
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/eventually.h"

namespace rt::test {

// Objects as a client names them (no options).
inline constexpr const char* kConfigObject = "/pps/services/radioctrl/modem0/diag/config";
inline constexpr const char* kControlObject = "/pps/services/radioctrl/modem0/diag/control";
inline constexpr const char* kStatusEutraObject =
    "/pps/services/radioctrl/modem0/diag/status_eutra";
inline constexpr const char* kStatusUtraObject = "/pps/services/radioctrl/modem0/diag/status_utra";
inline constexpr const char* kStatusGeranObject =
    "/pps/services/radioctrl/modem0/diag/status_geran";
inline constexpr const char* kStatus3gpp2Object =
    "/pps/services/radioctrl/modem0/diag/status_3gpp2";
inline constexpr const char* kStatusDataObject = "/pps/services/radioctrl/modem0/diag/status_data";
inline constexpr const char* kStatusPersistentObject =
    "/pps/services/radioctrl/modem0/status_persistent";
inline constexpr const char* kDeviceInfoObject = "/pps/system/nvram/deviceinfo";
inline constexpr const char* kOmadmControlObject = "/pps/services/omadm/radio/control";
inline constexpr const char* kRadioControlObject = "/pps/services/radioctrl/modem0/control";

// The line that ends the daemon's start-up.
inline constexpr const char* kStartedLine = "tavora_pps started successfully.";

struct DaemonOptions {
    // Objects there before the daemon starts; leave one out to test its
    // absence. With devsim these shape its scenario (it serves OMA-DM only
    // when create_omadm_control is set, so its absence stays the default);
    // without it the fixture writes them as plain objects.
    bool create_config = true;
    bool create_status_persistent = true;
    bool create_deviceinfo = true;
    bool create_omadm_control = false;
    // HardwareID in deviceinfo (when created).
    std::string hardware_id = "0x52c0f9e4";
    // Start devsim for the other services (before the daemon, waited for).
    bool start_devsim = true;
    // A devsim scenario (JSON text) merged over the one the options above make.
    std::string devsim_scenario;
    // Attribute lines ("name::value") the configuration object starts with.
    std::vector<std::string> config_lines;
    // Extra "NAME=value" entries for the daemon (QMI_DEVICE, DIAG_DEVICE, ...).
    std::vector<std::string> env;
    // Extra command-line arguments (e.g. {"-U", "nobody"}).
    std::vector<std::string> args;
    // Start the daemon in the constructor and wait for kStartedLine.
    bool start = true;
};

// A client connection to one PPS object, kept open between calls.
class PpsClientConnection {
  public:
    // Opens `path` (options allowed) read-write; ok() tells whether it did.
    explicit PpsClientConnection(const std::string& path, int flags = -1);
    ~PpsClientConnection();
    PpsClientConnection(const PpsClientConnection&) = delete;
    PpsClientConnection& operator=(const PpsClientConnection&) = delete;

    bool ok() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    // One write = one PPS message.
    bool Write(const std::string& text);
    // Waits up to timeout_ms for something to read and returns it ("" on time-out).
    std::string Read(int timeout_ms);

  private:
    int fd_ = -1;
};

class DaemonFixture {
  public:
    explicit DaemonFixture(DaemonOptions options = {});
    ~DaemonFixture();
    DaemonFixture(const DaemonFixture&) = delete;
    DaemonFixture& operator=(const DaemonFixture&) = delete;

    // Starts the daemon (when options.start was false); true once it logged kStartedLine.
    bool Start();
    bool started() const { return started_; }

    PpsBroker& broker() { return *broker_; }
    ChildProcess& devsim() { return *devsim_; }
    ChildProcess& daemon() { return *daemon_; }
    bool has_daemon() const { return daemon_ != nullptr; }

    // Writes attribute lines ("name::value", "name:n:5", "-name") to
    // diag/config as another client, in one message.
    bool WriteConfig(const std::vector<std::string>& lines);
    // Writes `text` to an object (created if absent) as another client and
    // waits until a reader sees it; false when it cannot be written.
    bool WriteObject(const std::string& path, const std::string& text);
    // Sends msg/id (and dat as a string attribute when given) to the control
    // server object and returns the reply text, or "" when none comes in time.
    std::string Request(const std::string& msg, const std::string& id,
                        const std::optional<std::string>& dat = std::nullopt,
                        int timeout_ms = kEventTimeoutMs);
    // The object's current text ("" when it cannot be opened).
    std::string ReadObject(const std::string& path);
    // Whether `path` comes to hold `needle` within the event time-out.
    bool ObjectHolds(const std::string& path, const std::string& needle);
    // Asks for a report again and again until `object` holds every one of
    // `lines` (each log code arrives on its own after the mask goes on).
    // Bounded by the event time-out; returns the last text either way.
    std::string ReportHolding(const std::string& request, const std::string& object,
                              const std::vector<std::string>& lines);

    // Sends a signal and returns the exit status (-1 on time-out).
    int Stop(int signal_number, int timeout_ms = kEventTimeoutMs);

  private:
    void StartDevsim();

    DaemonOptions options_;
    std::unique_ptr<PpsBroker> broker_;
    TempDir scenario_dir_;
    std::unique_ptr<ChildProcess> devsim_;
    std::unique_ptr<ChildProcess> daemon_;
    bool started_ = false;
};

}  // namespace rt::test
