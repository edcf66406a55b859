#include "diaglog/log_snapshot_store.h"

#include <time.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "service/tavora_log.h"

LogSnapshotStore g_log_snapshot_store;

namespace {

namespace L = log_layout;

template <class Stats>
RlcStatsSnapshot EmptyStats() {
    RlcStatsSnapshot s;
    s.header_size = Stats::kHeaderSize;
    s.entry_size = Stats::kEntrySize;
    return s;
}

RlcConfigSnapshot EmptyConfig(const L::RlcConfig::ListShape& list) {
    RlcConfigSnapshot s;
    s.rb_list_size = list.area;
    return s;
}

// Word 0 of a packet or snapshot: zero means no packet.
bool HasPacket(const uint8_t* bytes, size_t length) {
    return bytes != nullptr && rt::FieldReader({bytes, length}).Get(log_layout::kPacketWord) != 0;
}

// Copies min(size, length) bytes and zeroes the rest of the area up to
// `written`, how far earlier copies reached (past it the area is zero
// already); returns how far this one reached. Most packets of a code have
// one length, so after the first nothing is zeroed. A null source copies
// nothing (memcpy from null is undefined even for 0 bytes).
size_t CopyCut(uint8_t* to, size_t size, const uint8_t* from, size_t length, size_t written) {
    size_t n = from == nullptr ? 0 : std::min(size, length);
    if (n > 0) std::memcpy(to, from, n);
    written = std::min(written, size);
    if (n < written) std::memset(to + n, 0, written - n);
    return n;
}

// The same for an area earlier copies may have filled whole.
void CopyCut(uint8_t* to, size_t size, const uint8_t* from, size_t length) {
    CopyCut(to, size, from, length, size);
}

}  // namespace

LogSnapshotStore::LogSnapshotStore() {
    static_assert(kRlcUlStatsSlot <= 0xFF, "slots fit a byte");
    for (size_t i = 0; i < kFixedSnapshotCount; ++i) {
        fixed_offsets_[i] = fixed_total_;
        fixed_total_ += kFixedSnapshotSizes[i].size;
        slot_of_code_[kFixedSnapshotSizes[i].code] = static_cast<uint8_t>(i + 1);
    }
    slot_of_code_[kLogCodeRlcDlConfig] = kRlcDlConfigSlot;
    slot_of_code_[kLogCodeRlcUlConfig] = kRlcUlConfigSlot;
    slot_of_code_[kLogCodeRlcDlStats] = kRlcDlStatsSlot;
    slot_of_code_[kLogCodeRlcUlStats] = kRlcUlStatsSlot;
    fixed_.reset(new uint8_t[fixed_total_]());
    Reset();
}

void LogSnapshotStore::Reset() {
    std::lock_guard<SnapshotLock> hold(mutex_);
    std::memset(fixed_.get(), 0, fixed_total_);
    std::fill(std::begin(fixed_written_), std::end(fixed_written_), 0);
    rlc_dl_config_ = EmptyConfig(L::RlcConfig::kDlList);
    rlc_ul_config_ = EmptyConfig(L::RlcConfig::kUlList);
    rlc_dl_stats_ = EmptyStats<L::RlcDlStats>();
    rlc_ul_stats_ = EmptyStats<L::RlcUlStats>();
}

bool LogSnapshotStore::Store(uint16_t code, const uint8_t* packet, size_t length) {
    if (packet == nullptr) length = 0;
    const uint8_t slot = slot_of_code_[code];
    switch (slot) {
        case kNoSlot:
            return false;
        case kRlcDlConfigSlot:
            StoreRlcConfig(&rlc_dl_config_, packet, length);
            return true;
        case kRlcUlConfigSlot:
            StoreRlcConfig(&rlc_ul_config_, packet, length);
            return true;
        case kRlcDlStatsSlot:
            StoreRlcStats(&rlc_dl_stats_, packet, length);
            return true;
        case kRlcUlStatsSlot:
            StoreRlcStats(&rlc_ul_stats_, packet, length);
            return true;
        default: {
            const size_t i = slot - 1;
            std::lock_guard<SnapshotLock> hold(mutex_);
            fixed_written_[i] =
                CopyCut(fixed_.get() + fixed_offsets_[i], kFixedSnapshotSizes[i].size, packet,
                        length, fixed_written_[i]);
            return true;
        }
    }
}

void LogSnapshotStore::StoreRlcConfig(RlcConfigSnapshot* s, const uint8_t* packet, size_t length) {
    std::lock_guard<SnapshotLock> hold(mutex_);
    CopyCut(s->bytes, RlcConfigSnapshot::kHeaderSize, packet, length);
    if (HasPacket(s->bytes, RlcConfigSnapshot::kHeaderSize)) {
        // The list of radio bearers starts after the packet's count byte at P.
        size_t p = L::RlcConfig::RbCountOffset(s->bytes[L::RlcConfig::kSkipRecordCount.offset]);
        s->bytes[RlcConfigSnapshot::kRbCountOffset] = p < length ? packet[p] : 0;
        uint8_t* list = s->bytes + RlcConfigSnapshot::kRbListOffset;
        std::memset(list, 0, s->rb_list_size);
        if (p + 1 < length)
            std::memcpy(list, packet + p + 1, std::min(length - (p + 1), s->rb_list_size));
    }
    std::memset(s->rb_cfg_idx_table, 0xFF, sizeof s->rb_cfg_idx_table);
    std::memset(s->rb_kind_table, 0xFF, sizeof s->rb_kind_table);
    ++s->generation;
}

void LogSnapshotStore::StoreRlcStats(RlcStatsSnapshot* s, const uint8_t* packet, size_t length) {
    // The array is made before the lock is taken and the old one is freed
    // after it is released: the lock covers only the swap.
    size_t header = s->header_size;
    bool has_packet = HasPacket(packet, length);
    size_t count =
        length > RlcStatsSnapshot::kCountOffset ? packet[RlcStatsSnapshot::kCountOffset] : 0;
    std::shared_ptr<uint8_t[]> entries;
    size_t entries_size = has_packet ? count * s->entry_size : 0;
    if (entries_size > 0) {
        entries.reset(new (std::nothrow) uint8_t[entries_size]());
        if (entries) {
            size_t available = length > header ? length - header : 0;
            std::memcpy(entries.get(), packet + header, std::min(entries_size, available));
        } else {
            entries_size = 0;  // no memory: the count stays, readers see no array
        }
    }
    std::shared_ptr<const uint8_t[]> old;
    {
        std::lock_guard<SnapshotLock> hold(mutex_);
        CopyCut(s->header, header, packet, length);
        if (!has_packet) return;  // the previous entries stay
        old = std::move(s->rlc_stats_entries);
        s->rlc_stats_entries = std::move(entries);
        s->entries_size = entries_size;
    }
}

SnapshotView LogSnapshotStore::View(uint16_t code) const {
    std::lock_guard<SnapshotLock> hold(mutex_);
    return SnapshotView(Snapshot(code));
}

std::span<const uint8_t> LogSnapshotStore::Snapshot(uint16_t code) const {
    const uint8_t slot = slot_of_code_[code];
    switch (slot) {
        case kNoSlot:
            return {};
        case kRlcDlConfigSlot:
            return rlc_dl_config_.snapshot();
        case kRlcUlConfigSlot:
            return rlc_ul_config_.snapshot();
        case kRlcDlStatsSlot:
            return rlc_dl_stats_.snapshot();
        case kRlcUlStatsSlot:
            return rlc_ul_stats_.snapshot();
        default:
            return {fixed_.get() + fixed_offsets_[slot - 1], kFixedSnapshotSizes[slot - 1].size};
    }
}

RlcConfigView LogSnapshotStore::RlcConfigCopy(uint16_t code) const {
    std::lock_guard<SnapshotLock> hold(mutex_);
    const RlcConfigSnapshot* s = code == kLogCodeRlcDlConfig   ? &rlc_dl_config_
                                 : code == kLogCodeRlcUlConfig ? &rlc_ul_config_
                                                               : nullptr;
    if (s == nullptr) return {};
    RlcBearerTables tables;
    std::copy_n(s->rb_cfg_idx_table, tables.cfg_idx.size(), tables.cfg_idx.begin());
    std::copy_n(s->rb_kind_table, tables.kind.size(), tables.kind.begin());
    return RlcConfigView({s->bytes, RlcConfigSnapshot::kHeaderSize}, s->rb_count(), s->rb_list(),
                         tables, s->generation);
}

RlcStatsView LogSnapshotStore::RlcStatsCopy(uint16_t code) const {
    std::lock_guard<SnapshotLock> hold(mutex_);
    const RlcStatsSnapshot* s = code == kLogCodeRlcDlStats   ? &rlc_dl_stats_
                                : code == kLogCodeRlcUlStats ? &rlc_ul_stats_
                                                             : nullptr;
    if (s == nullptr) return {};
    return RlcStatsView(HasPacket(s->header, s->header_size), s->count(), s->entry_size,
                        s->rlc_stats_entries, s->entries_size);
}

bool LogSnapshotStore::StoreRlcBearerTables(uint16_t code, uint64_t generation,
                                            const RlcBearerTables& tables) {
    std::lock_guard<SnapshotLock> hold(mutex_);
    RlcConfigSnapshot* s = RlcConfig(code);
    if (s == nullptr || s->generation != generation) return false;
    std::copy(tables.cfg_idx.begin(), tables.cfg_idx.end(), s->rb_cfg_idx_table);
    std::copy(tables.kind.begin(), tables.kind.end(), s->rb_kind_table);
    return true;
}

RlcConfigSnapshot* LogSnapshotStore::RlcConfig(uint16_t code) {
    if (code == kLogCodeRlcDlConfig) return &rlc_dl_config_;
    if (code == kLogCodeRlcUlConfig) return &rlc_ul_config_;
    return nullptr;
}

RlcStatsSnapshot* LogSnapshotStore::RlcStats(uint16_t code) {
    if (code == kLogCodeRlcDlStats) return &rlc_dl_stats_;
    if (code == kLogCodeRlcUlStats) return &rlc_ul_stats_;
    return nullptr;
}

void LogSnapshotStore::FreeRlcStatsEntries() {
    bool locked = false;
    for (int i = 0; i < 100 && !(locked = mutex_.try_lock()); ++i) {
        timespec ms{0, 1000000};
        nanosleep(&ms, nullptr);
    }
    if (!locked) return;
    for (RlcStatsSnapshot* s : {&rlc_dl_stats_, &rlc_ul_stats_}) {
        s->rlc_stats_entries.reset();
        s->entries_size = 0;
    }
    mutex_.unlock();
}

void DM_recv_log_packet_cb(void* /*unused*/, uint32_t log_code, const uint8_t* packet,
                           uint32_t length) {
    if (packet == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora:  Callback Called with null buffer !!!", "DM_recv_log_packet_cb");
        return;
    }
    if (log_code > 0xFFFF) return;
    g_log_snapshot_store.Store(static_cast<uint16_t>(log_code), packet, length);
}
