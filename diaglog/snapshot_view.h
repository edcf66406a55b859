// SnapshotView: a report's stable copy of one log code's snapshot, taken
// under the store's lock, read only through named layout fields. Whatever a
// count inside the packet says, a read past the snapshot's size reads as
// absent: there is no way to reach a byte outside the copy.
//
//   SnapshotView cell = g_log_snapshot_store.View(log_layout::CellIdentity::kCode);
//   if (cell.has_packet()) Use(cell.Get(log_layout::CellIdentity::kUra));
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/common/byte_layout.h"
#include "platform/dmux/log_layouts.h"

class SnapshotView {
  public:
    // The largest fixed snapshot the store keeps (the store checks that
    // none is larger).
    static constexpr size_t kMaxSize = log_layout::MonitoredSet::kSize;

    SnapshotView() = default;
    // Copies at most kMaxSize bytes of `bytes`.
    explicit SnapshotView(std::span<const uint8_t> bytes)
        : size_(std::min(bytes.size(), kMaxSize)) {
        std::copy_n(bytes.begin(), size_, bytes_.begin());
    }

    size_t size() const { return size_; }
    std::span<const uint8_t> bytes() const { return {bytes_.data(), size_}; }

    // False while no packet has been stored: word 0 is zero.
    bool has_packet() const { return reader().Get(log_layout::kPacketWord) != 0; }

    template <class T>
    std::optional<T> Read(rt::Field<T> field) const {
        // Past the largest copy there is nothing to read, whatever the size.
        if (field.offset >= kMaxSize) return std::nullopt;
        return reader().Read(field);
    }
    // The field, or 0 when it lies past the snapshot.
    template <class T>
    T Get(rt::Field<T> field) const {
        return Read(field).value_or(T{0});
    }

  private:
    rt::FieldReader reader() const { return rt::FieldReader(bytes()); }

    std::array<uint8_t, kMaxSize> bytes_{};
    size_t size_ = 0;
};
