// modemsim's QMI side: a unix socket ("unix:/path") or a pseudo-terminal
// ("pty:LINK", see pty_link.h) that speaks QMUX, the CTL service (service
// list, client ids, sync) and the vendor service. Answers may be delayed; a
// reset drops every connection and the listening socket (or the
// pseudo-terminal and its link) and brings them back after the scenario's
// reset_down_ms.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "platform/qmi_client/qmux_codec.h"
#include "tools/modemsim/pty_link.h"
#include "tools/modemsim/vendor_service.h"

namespace modemsim {

class QmiSide {
  public:
    // With worlds, RAT measurements of type 3 measure the WCDMA world and
    // those of type 4 the LTE world (vendor_service.h).
    QmiSide(std::string endpoint, const nlohmann::json& qmi_section,
            std::shared_ptr<const WcdmaWorld> world = nullptr,
            std::shared_ptr<const LteWorld> lte = nullptr);
    ~QmiSide();

    bool Start(std::string* error);
    // Thread-safe: asks the side's thread to drop the transport and come back.
    void Reset();
    void Stop();

  private:
    using Clock = std::chrono::steady_clock;
    struct Connection {
        int fd = -1;
        bool pty = false;  // the pseudo-terminal's master: pty_ owns it
        uint64_t serial = 0;
        qmux::FrameAssembler assembler;
        std::vector<uint8_t> clients;  // vendor client ids allocated on it
    };
    struct Scheduled {
        Clock::time_point due;
        uint64_t serial;
        std::vector<uint8_t> frame;
        uint16_t delayed_message = 0;  // message id of a delayed answer, for the log
    };

    bool Listen(std::string* error);
    void Run();
    void DropTransport();
    void Accept();
    bool ReadFrom(Connection* connection);
    void Handle(Connection* connection, const qmux::Message& request);
    void HandleCtl(Connection* connection, const qmux::Message& request);
    void Schedule(Connection* connection, qmux::Message answer, int delay_ms);
    void SendDue();
    int PollTimeoutMs() const;

    std::string endpoint_text_;
    std::string path_;  // the socket, or the pseudo-terminal's link
    bool on_pty_ = false;
    PtyLink pty_;
    VendorService vendor_;
    nlohmann::json services_;
    int reset_down_ms_;
    int listen_fd_ = -1;
    int wake_[2] = {-1, -1};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> reset_requested_{false};
    bool down_ = false;
    Clock::time_point back_at_{};
    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<Scheduled> scheduled_;
    uint64_t next_serial_ = 1;
    uint8_t next_client_id_ = 1;
    std::thread thread_;
};

}  // namespace modemsim
