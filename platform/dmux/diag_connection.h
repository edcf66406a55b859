// One open DIAG source and the thread that reads it. Internal to the DM
// library (kora_dmc.cpp holds the one connection).
#pragma once

#include <atomic>
#include <bitset>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/diag_source.h"
#include "platform/dmux/diag_stream.h"
#include "platform/dmux/dm_stats_object.h"
#include "platform/dmux/kora_dmc.h"
#include "platform/dmux/log_code_mask.h"

namespace dmux {

// Longest wait between two paced packets of a capture.
inline constexpr int kReplayMaxGapMs = 1000;
// Pause before a looping replay starts over (paced, or nothing delivered).
inline constexpr int kReplayLoopPauseMs = 100;
// Bytes read from a capture at a time.
inline constexpr size_t kReplayWindow = 1 << 20;
// A replay of a file at least this big tells its progress on stderr.
inline constexpr size_t kReplayProgressMinBytes = 64u << 20;
// A socket or serial source that goes away is opened again, first after
// the shorter pause, then at most this far apart, until it is back; the
// masks in force are then sent to it again.
inline constexpr int kReconnectFirstMs = 50;
inline constexpr int kReconnectMaxMs = 1000;
// A source that sends nothing this long is quiet: the counts so far are
// written to the stats object then, rather than at the next read.
inline constexpr int kQuietMs = 100;

class DiagConnection {
  public:
    // Opens the source; nullptr with *error set when it cannot.
    static std::unique_ptr<DiagConnection> Open(const DiagSource& source, int* error);
    ~DiagConnection();
    DiagConnection(const DiagConnection&) = delete;
    DiagConnection& operator=(const DiagConnection&) = delete;

    void SetCallback(kora_dmc_log_cb_t callback, void* user_data);
    int SetLogMask(uint32_t equipment_id, uint32_t last_item, std::span<const uint8_t> mask,
                   uint32_t* status);
    // Stops delivery and the thread (waits a bounded time for it). False
    // when the thread could not be joined: the connection must then be
    // left allocated.
    bool Stop();
    kora_dmc_stats Stats() const;

  private:
    explicit DiagConnection(const DiagSource& source);
    static void Deliver(void* self, uint16_t code, std::span<const uint8_t> record);
    void OnConfigFrame(std::span<const uint8_t> body);
    void StreamLoop();
    // Reads the source until it is lost or the connection stops.
    void ReadUntilLost();
    // Opens the source again (until stopping) and resends the masks in force.
    bool Reconnect();
    void ReplayLoop();
    void ReplayOnce();
    // Replay thread: puts the masks the client has sent since into force.
    // An equipment id enabled for the first time also gets the packets of
    // the pass that went by before it (the first `frames_before` log
    // packets), so a capture loses nothing to the order or the pace of the
    // client's requests.
    void ApplyPendingMasks(uint64_t frames_before);
    void CatchUp(const LogCodeMask& only, uint64_t frames_before);
    void WaitForFirstMask();
    void IdleUntilStopped();
    // When the counts are written to the stats object: kWhenDue, at most
    // once an interval (a busy source); kIfChanged, now if they changed (a
    // source gone quiet); kPassDone and kNow, now.
    enum class StatsMoment { kWhenDue, kIfChanged, kPassDone, kNow };
    void PublishStats(StatsMoment moment);
    bool SleepUntil(std::chrono::steady_clock::time_point when);  // false when stopping
    void Pace(const DiagFrame& frame);

    DiagSource source_;
    std::atomic<int> fd_{-1};  // replaced by the reader thread on a reconnect
    // A capture is read in windows of kReplayWindow bytes, so that memory
    // does not grow with the size of the file.
    int file_fd_ = -1;
    size_t file_size_ = 0;
    size_t replayed_ = 0;     // bytes of the current pass fed so far
    int progress_shown_ = 0;  // last tenth of a long replay told on stderr
    DmStatsObject dm_stats_;  // reader thread only

    LogCodeMask mask_;
    DiagStream stream_;
    std::atomic<kora_dmc_log_cb_t> callback_{nullptr};
    std::atomic<void*> user_data_{nullptr};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> exited_{false};
    std::thread thread_;

    mutable std::mutex mutex_;  // the fields below
    std::condition_variable changed_;
    std::optional<LogConfigResponse> response_;
    struct MaskInForce {
        uint32_t last_item;
        std::vector<uint8_t> mask;
    };
    std::map<uint32_t, MaskInForce> masks_in_force_;  // by equipment id
    // A capture's masks wait here for the replay thread, which applies them
    // between two packets; a socket or serial source applies them at once.
    std::vector<std::pair<uint32_t, MaskInForce>> pending_masks_;
    std::atomic<bool> masks_pending_{false};  // spares the replay a lock per packet
    bool transport_lost_ = false;
    kora_dmc_stats stats_{};

    std::mutex write_mutex_;  // one request on the wire at a time; guards replacing fd_

    // Replay thread only: equipment ids the client has sent a mask for, and
    // the log-packet count of the stream when the current pass began.
    std::bitset<LogCodeMask::kEquipmentIds> configured_;
    uint64_t pass_start_packets_ = 0;

    // Pacing state of a paced replay.
    bool pace_started_ = false;
    double pace_last_ms_ = 0;
    std::chrono::steady_clock::time_point pace_next_{};
};

}  // namespace dmux
