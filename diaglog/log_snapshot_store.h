// LogSnapshotStore: the latest DIAG log packet of each log code a report
// reads, kept from the DM library's callback. A snapshot starts with the
// packet's own byte 0 (the 12-byte log header, then the payload), so a
// payload byte k sits at snapshot offset 12 + k. A snapshot whose first
// 16-bit word is 0 holds no packet yet.
//
// The callback runs on the DM library's thread and reports read on the main
// thread: a report reads a snapshot through View(), a copy taken under the
// lock; the RLC accessors need mutex() held. An RLC statistics entries
// array is shared, so a reader may keep a copy of the pointer and walk it
// after unlocking while the callback installs a newer array.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "diaglog/rlc_view.h"
#include "diaglog/snapshot_lock.h"
#include "diaglog/snapshot_view.h"
#include "platform/dmux/log_layouts.h"

// Fixed-size snapshots: the first `size` bytes of each packet of `code`.
struct FixedSnapshotSize {
    uint16_t code;
    uint16_t size;
};
template <class Layout>
constexpr FixedSnapshotSize SizeOf() {
    return {Layout::kCode, static_cast<uint16_t>(Layout::kSize)};
}
inline constexpr FixedSnapshotSize kFixedSnapshotSizes[] = {
    SizeOf<log_layout::IratCompressedMode>(),
    SizeOf<log_layout::Drx>(),
    SizeOf<log_layout::Reselection>(),
    SizeOf<log_layout::TxPower>(),
    SizeOf<log_layout::ActiveSet>(),
    SizeOf<log_layout::MonitoredSet>(),
    SizeOf<log_layout::TransportChannels>(),
    SizeOf<log_layout::RrcState>(),
    SizeOf<log_layout::CellIdentity>(),
    SizeOf<log_layout::HsdpaRate>(),
    SizeOf<log_layout::RabId>(),
    SizeOf<log_layout::HspaUeState>(),
    SizeOf<log_layout::CarrierRssi>(),
    SizeOf<log_layout::Cqi>(),
    SizeOf<log_layout::GmmUpdateStatus>(),
    SizeOf<log_layout::MmUpdateStatus>(),
    SizeOf<log_layout::LocationIdentity>(),
    SizeOf<log_layout::PdpQos>(),
    SizeOf<log_layout::LteServingCell>(),
    SizeOf<log_layout::LteUeIdentity>(),
    SizeOf<log_layout::LteServingMeasurements>(),
    SizeOf<log_layout::LteServingRssi>(),
    SizeOf<log_layout::LteCdmaNeighbours>(),
    SizeOf<log_layout::LteWcdmaNeighbours>(),
};
inline constexpr size_t kFixedSnapshotCount = std::size(kFixedSnapshotSizes);
static_assert(std::ranges::all_of(kFixedSnapshotSizes,
                                  [](FixedSnapshotSize s) {
                                      return s.size <= SnapshotView::kMaxSize;
                                  }),
              "a report's copy holds the largest fixed snapshot whole");

inline constexpr uint16_t kLogCodeRlcDlConfig = log_layout::RlcConfig::kDlCode;
inline constexpr uint16_t kLogCodeRlcUlConfig = log_layout::RlcConfig::kUlCode;
inline constexpr uint16_t kLogCodeRlcDlStats = log_layout::RlcDlStats::kCode;
inline constexpr uint16_t kLogCodeRlcUlStats = log_layout::RlcUlStats::kCode;

// LTE RLC configuration (0xB081 downlink, 0xB091 uplink): the packet's
// header, rb_count, one unused byte, then rb_list; plus the two bearer
// tables that the RLC report fills and each new packet resets to 0xFF.
struct RlcConfigSnapshot {
    static constexpr size_t kHeaderSize = log_layout::RlcConfig::kHeaderSize;
    static constexpr size_t kRbCountOffset = kHeaderSize;
    static constexpr size_t kRbListOffset = kRbCountOffset + 2;
    static constexpr size_t kMaxRbListSize =
        std::max(log_layout::RlcConfig::kDlList.area, log_layout::RlcConfig::kUlList.area);
    static constexpr size_t kTableSize = log_layout::RlcConfig::kMaxListEntries;

    size_t rb_list_size = 0;  // the direction's list area
    uint64_t generation = 0;  // counts the packets stored, to tell copies apart
    uint8_t bytes[kRbListOffset + kMaxRbListSize] = {};
    uint8_t rb_cfg_idx_table[kTableSize] = {};
    uint8_t rb_kind_table[kTableSize] = {};

    uint8_t rb_count() const { return bytes[kRbCountOffset]; }
    std::span<const uint8_t> rb_list() const { return {bytes + kRbListOffset, rb_list_size}; }
    // Header, rb_count, the unused byte and rb_list, as readers address it.
    std::span<const uint8_t> snapshot() const { return {bytes, kRbListOffset + rb_list_size}; }
};
static_assert(RlcConfigView::kMaxListSize == RlcConfigSnapshot::kMaxRbListSize,
              "a report's copy holds either direction's list whole");

// LTE RLC statistics (0xB087 downlink, 0xB097 uplink): the packet's header
// bytes and the entries in their own array.
struct RlcStatsSnapshot {
    static constexpr size_t kCountOffset = log_layout::RlcDlStats::kCount.offset;
    static constexpr size_t kMaxHeaderSize =
        std::max(log_layout::RlcDlStats::kHeaderSize, log_layout::RlcUlStats::kHeaderSize);

    size_t header_size = 0;  // the direction's header size
    size_t entry_size = 0;   // and entry size
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

    SnapshotLock& mutex() { return mutex_; }

    // Copies one packet into its code's snapshot (codes without one are
    // ignored); takes the lock. A null or empty packet clears the snapshot
    // to "no packet". False when the code has no snapshot.
    bool Store(uint16_t code, const uint8_t* packet, size_t length);

    // A stable copy of the snapshot of `code` (fixed-size, RLC configuration
    // or RLC statistics header), taken under the lock; empty for a code the
    // store does not keep.
    SnapshotView View(uint16_t code) const;
    // Stable copies of the RLC snapshots of `code`, taken under the lock;
    // empty views for a code that is not one of them.
    RlcConfigView RlcConfigCopy(uint16_t code) const;
    RlcStatsView RlcStatsCopy(uint16_t code) const;
    // Writes the bearer tables of configuration code `code`, unless a newer
    // configuration packet (one after `generation`) has reset them since the
    // copy they were worked out from was taken. False when not written.
    bool StoreRlcBearerTables(uint16_t code, uint64_t generation, const RlcBearerTables& tables);

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

    // The snapshot's bytes in place; hold mutex_.
    std::span<const uint8_t> Snapshot(uint16_t code) const;

    // Where a code's packets go, looked up in one step per packet: the
    // fixed snapshot's index plus one, one of the RLC slots, or kNoSlot.
    static constexpr uint8_t kNoSlot = 0;
    static constexpr uint8_t kRlcDlConfigSlot = kFixedSnapshotCount + 1;
    static constexpr uint8_t kRlcUlConfigSlot = kFixedSnapshotCount + 2;
    static constexpr uint8_t kRlcDlStatsSlot = kFixedSnapshotCount + 3;
    static constexpr uint8_t kRlcUlStatsSlot = kFixedSnapshotCount + 4;
    uint8_t slot_of_code_[0x10000] = {};

    mutable SnapshotLock mutex_;
    size_t fixed_offsets_[kFixedSnapshotCount];
    // How far into each fixed snapshot the last packet reached: bytes past
    // it are zero.
    size_t fixed_written_[kFixedSnapshotCount] = {};
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
