// RlcConfigView and RlcStatsView: a report's stable copies of the LTE RLC
// snapshots, taken under the store's lock (LogSnapshotStore::RlcConfigView,
// RlcStatsView). Entries are read through rt::FieldReader over exactly
// their own bytes, so neither a list position nor an entry count inside a
// packet can lead a reader outside the copy.
//
//   RlcConfigView config = g_log_snapshot_store.RlcConfigView(kLogCodeRlcUlConfig);
//   rt::FieldReader entry = config.ListEntryAt(p);
//   uint8_t kind = entry.Get(log_layout::RlcConfig::kEntryKind);
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/common/byte_layout.h"
#include "platform/dmux/log_layouts.h"

// The two bearer tables of one direction: position i holds the
// configuration index and the kind (1 SRB, 2 DRB) of list entry i; 0xFF
// where no entry has filled it since the last configuration packet.
struct RlcBearerTables {
    static constexpr size_t kSize = log_layout::RlcConfig::kMaxListEntries;
    std::array<uint8_t, kSize> cfg_idx{};
    std::array<uint8_t, kSize> kind{};
};

class RlcConfigView {
  public:
    static constexpr size_t kHeaderSize = log_layout::RlcConfig::kHeaderSize;
    static constexpr size_t kMaxListSize =
        std::max(log_layout::RlcConfig::kDlList.area, log_layout::RlcConfig::kUlList.area);

    RlcConfigView() = default;
    // Copies the header, rb_count and at most kMaxListSize bytes of rb_list.
    RlcConfigView(std::span<const uint8_t> header, uint8_t rb_count,
                  std::span<const uint8_t> rb_list, const RlcBearerTables& tables,
                  uint64_t generation);

    // False while no packet has been stored: word 0 is zero.
    bool has_packet() const;
    uint8_t rb_count() const { return rb_count_; }
    size_t rb_list_size() const { return list_size_; }
    // The bytes of rb_list from position p on (empty at or past its end);
    // an entry's fields are read relative to p.
    rt::FieldReader ListEntryAt(size_t p) const;
    const RlcBearerTables& tables() const { return tables_; }
    // Which configuration packet the copy was taken from (see
    // LogSnapshotStore::StoreRlcBearerTables).
    uint64_t generation() const { return generation_; }

  private:
    std::array<uint8_t, kHeaderSize> header_{};
    uint8_t rb_count_ = 0;
    std::array<uint8_t, kMaxListSize> list_{};
    size_t list_size_ = 0;
    RlcBearerTables tables_;
    uint64_t generation_ = 0;
};

class RlcStatsView {
  public:
    RlcStatsView() = default;
    // Shares the entries array: the store replaces it rather than changing
    // it, so the copy stays valid while the reader walks it.
    RlcStatsView(bool has_packet, uint8_t count, size_t entry_size,
                 std::shared_ptr<const uint8_t[]> entries, size_t entries_size)
        : has_packet_(has_packet),
          count_(count),
          entry_size_(entry_size),
          entries_(std::move(entries)),
          entries_size_(entries_ ? entries_size : 0) {}

    bool has_packet() const { return has_packet_; }
    // The entry count of the header (byte 20), as the packet says it.
    uint8_t count() const { return count_; }
    // Entry s: its entry_size bytes, or no bytes at all when the array does
    // not hold them (a short packet, a failed allocation).
    rt::FieldReader Entry(size_t s) const;

  private:
    bool has_packet_ = false;
    uint8_t count_ = 0;
    size_t entry_size_ = 0;
    std::shared_ptr<const uint8_t[]> entries_;
    size_t entries_size_ = 0;
};
