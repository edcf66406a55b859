// modemsim's DIAG side: a DIAG port on a unix stream socket, or on a
// pseudo-terminal that plays a serial port ("pty:LINK", see pty_link.h;
// one session for as long as modemsim runs, as on a real port). It answers
// log-config (0x73 set-mask) commands, keeps the client's log mask, and
// streams HDLC log packets of the enabled codes, either from a capture file
// (each frame forwarded as it is in the file, bad ones included, paced by
// the packets' timestamps and looping unless the scenario says otherwise)
// or from its scenario (an RRC state timeline for 0x4125, any other
// records it lists, and the log packets of a WCDMA world and of an LTE
// world when it is given them: see wcdma_log_packets.h and
// lte_log_packets.h; a code that the scenario's records name is sent from
// the records only). Every command received is logged on stderr,
// one line:
//
//   modemsim: diag rx log-config equip=7 last=0x74ff mask_bytes=479 set=38:63
//
// ("set" lists the nonzero mask bytes as index:value in hex, "-" when none).
//
// Scenario "diag" section (merged over DefaultDiagScenario()):
//   status          u32 answered to every set-mask (0 = accepted)
//   capture_pace    "real" or "fast"
//   capture_loop    bool
//   capture_after_masks  start the capture only after this many set-mask
//                   commands (0: once the masks have held still)
//   rrc_states      [{"state": 3, "hold_ms": 2000}, ...]: 0x4125 timeline, cycling
//   rrc_period_ms   how often the current state is logged during a hold
//   records         [{"code": "0x4110", "payload": "hex", "period_ms": 1000}]
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/pty_link.h"
#include "tools/modemsim/wcdma_world.h"

namespace modemsim {

nlohmann::json DefaultDiagScenario();

class DiagSide {
  public:
    // endpoint: "unix:/path", "/path" or "pty:LINK". capture: a .qmdl/.mi2log file, or
    // empty for the scenario.
    // world, lte: each logged every period_ms() of its own while no capture
    // is replayed.
    DiagSide(std::string endpoint, std::string capture, const nlohmann::json& scenario_diag_section,
             std::shared_ptr<const WcdmaWorld> world = nullptr,
             std::shared_ptr<const LteWorld> lte = nullptr);
    ~DiagSide();
    DiagSide(const DiagSide&) = delete;
    DiagSide& operator=(const DiagSide&) = delete;

    bool Start(std::string* error);
    void Stop();

    // Every set-mask command received so far, in order.
    std::vector<dmux::LogConfigSetMask> ReceivedMasks() const;
    // Log packets written to clients so far.
    uint64_t PacketsSent() const { return packets_sent_.load(); }

  private:
    struct CaptureFrame;
    struct Session;
    void AcceptLoop();
    void Serve(int fd);
    void Produce(Session* session);
    void ProduceCapture(Session* session);
    void ProduceScenario(Session* session);
    bool LoadCapture(std::string* error);

    std::string path_;
    bool on_pty_ = false;
    PtyLink pty_;
    std::string capture_;
    nlohmann::json scenario_;
    std::shared_ptr<const WcdmaWorld> world_;
    std::shared_ptr<const LteWorld> lte_;
    std::vector<CaptureFrame> frames_;
    int listen_fd_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread accept_thread_;
    mutable std::mutex mutex_;
    std::vector<dmux::LogConfigSetMask> received_;
    std::atomic<uint64_t> packets_sent_{0};
};

}  // namespace modemsim
