// LogSnapshotStore: the latest DIAG log packet of each log code a report
// reads, kept from the DM library's callback. A snapshot starts with the
// packet's own byte 0 (the 12-byte log header, then the payload), so a
// payload byte k sits at snapshot offset 12 + k. A snapshot whose first
// 16-bit word is 0 holds no packet yet.
//
// The callback runs on the DM library's thread and reports read on the main
// thread: hold mutex() while reading a snapshot. An RLC statistics entries
// array is shared, so a reader may keep a copy of the pointer and walk it
// after unlocking while the callback installs a newer array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

// Fixed-size snapshots: the first `size` bytes of each packet of `code`.
struct FixedSnapshotSize {
    uint16_t code;
    uint16_t size;
};
inline constexpr FixedSnapshotSize kFixedSnapshotSizes[] = {
    {0x4000, 13},  {0x4004, 19},  {0x4005, 558}, {0x410C, 29},  {0x4110, 87},  {0x4111, 694},
    {0x4116, 87},  {0x4125, 13},  {0x4127, 28},  {0x4138, 169}, {0x413A, 205}, {0x4156, 390},
    {0x4165, 514}, {0x421C, 516}, {0x7130, 15},  {0x7131, 15},  {0x7135, 21},  {0x7136, 30},
    {0xB0C2, 37},  {0xB0EE, 31},  {0xB179, 352}, {0xB17F, 39},  {0xB185, 217}, {0xB19B, 532},
};
inline constexpr size_t kFixedSnapshotCount = std::size(kFixedSnapshotSizes);

inline constexpr uint16_t kLogCodeRlcDlConfig = 0xB081;
inline constexpr uint16_t kLogCodeRlcUlConfig = 0xB091;
inline constexpr uint16_t kLogCodeRlcDlStats = 0xB087;
inline constexpr uint16_t kLogCodeRlcUlStats = 0xB097;

// LTE RLC configuration (0xB081 downlink, 0xB091 uplink): the packet's first
// 22 bytes, rb_count, one unused byte, then rb_list; plus the two bearer
// tables that the RLC report fills and each new packet resets to 0xFF.
struct RlcConfigSnapshot {
    static constexpr size_t kHeaderSize = 22;
    static constexpr size_t kRbCountOffset = 22;
    static constexpr size_t kRbListOffset = 24;
    static constexpr size_t kMaxRbListSize = 210;
    static constexpr size_t kTableSize = 15;

    size_t rb_list_size = 0;  // 135 (0xB081) or 210 (0xB091)
    uint8_t bytes[kRbListOffset + kMaxRbListSize] = {};
    uint8_t rb_cfg_idx_table[kTableSize] = {};
    uint8_t rb_kind_table[kTableSize] = {};

    uint8_t rb_count() const { return bytes[kRbCountOffset]; }
    std::span<const uint8_t> rb_list() const { return {bytes + kRbListOffset, rb_list_size}; }
    // Header, rb_count, the unused byte and rb_list, as readers address it.
    std::span<const uint8_t> snapshot() const { return {bytes, kRbListOffset + rb_list_size}; }
};

// LTE RLC statistics (0xB087 downlink, 0xB097 uplink): the packet's header
// bytes (entry count at offset 20) and the entries in their own array.
struct RlcStatsSnapshot {
    static constexpr size_t kCountOffset = 20;
    static constexpr size_t kMaxHeaderSize = 29;

    size_t header_size = 0;  // 29 or 25
    size_t entry_size = 0;   // 182 or 126
    uint8_t header[kMaxHeaderSize] = {};
    // count x entry_size bytes; null before the first packet, for a count of
    // 0, and when the array could not be allocated.
    std::shared_ptr<const uint8_t[]> rlc_stats_entries;
    size_t entries_size = 0;  // bytes in rlc_stats_entries

    uint8_t count() const { return header[kCountOffset]; }
    std::span<const uint8_t> snapshot() const { return {header, header_size}; }
};

class LogSnapshotStore {
  public:
    LogSnapshotStore();
    LogSnapshotStore(const LogSnapshotStore&) = delete;
    LogSnapshotStore& operator=(const LogSnapshotStore&) = delete;

    std::mutex& mutex() { return mutex_; }

    // Copies one packet into its code's snapshot (codes without one are
    // ignored); takes the mutex. False when the code has no snapshot.
    bool Store(uint16_t code, const uint8_t* packet, size_t length);

    // The snapshot of `code` (fixed-size, RLC configuration or RLC statistics
    // header); empty for a code the store does not keep. Hold mutex().
    std::span<const uint8_t> Snapshot(uint16_t code) const;
    // Hold mutex(). Null for the wrong code.
    RlcConfigSnapshot* RlcConfig(uint16_t code);
    RlcStatsSnapshot* RlcStats(uint16_t code);

    // Frees both entries arrays, 0xB087 first, then 0xB097. Used at
    // termination from a signal handler: waits at most ~100 ms for the mutex
    // and leaves the arrays alone if it cannot have it.
    void FreeRlcStatsEntries();

    // Back to the start state (every snapshot zero). Tests only.
    void Reset();

  private:
    void StoreRlcConfig(RlcConfigSnapshot* snapshot, const uint8_t* packet, size_t length);
    void StoreRlcStats(RlcStatsSnapshot* snapshot, const uint8_t* packet, size_t length);

    std::mutex mutex_;
    size_t fixed_offsets_[kFixedSnapshotCount];
    std::unique_ptr<uint8_t[]> fixed_;
    size_t fixed_total_ = 0;
    RlcConfigSnapshot rlc_dl_config_;
    RlcConfigSnapshot rlc_ul_config_;
    RlcStatsSnapshot rlc_dl_stats_;
    RlcStatsSnapshot rlc_ul_stats_;
};

// The process-wide store.
extern LogSnapshotStore g_log_snapshot_store;

// The DM library's packet callback (registered by Tavora_Initialize_DM): the
// first argument is unused; the packet is the log record of `log_code`.
void DM_recv_log_packet_cb(void* unused, uint32_t log_code, const uint8_t* packet, uint32_t length);
