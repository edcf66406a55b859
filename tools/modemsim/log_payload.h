// One DIAG log packet's payload as a world builds it, and the writer that
// fills it. The writer is given the size of the whole log record and takes
// offsets from the record's start, as the record descriptions
// (lte_log_records.h, wcdma_log_records.h) give them; the payload it holds
// is the record less its 12-byte log header, which the DIAG side puts in
// front. A payload starts zero-filled; a write outside it is dropped, so a
// long list can never overrun it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "platform/common/byte_layout.h"

namespace modemsim {

struct LogPayload {
    uint16_t code;
    std::vector<uint8_t> payload;
};

// Length, code and timestamp, before every payload.
inline constexpr size_t kLogHeaderSize = 12;

class PayloadWriter {
  public:
    explicit PayloadWriter(size_t record_size)
        : bytes_(record_size > kLogHeaderSize ? record_size - kLogHeaderSize : 0, 0) {}

    // A field at its record offset, little-endian.
    template <class T>
    void Set(rt::Field<T> field, int64_t value) {
        SetIn(0, field, value);
    }
    // A field of an entry inside the record (a list entry, a statistics
    // entry) that starts at record offset `entry`.
    template <class T>
    void SetIn(size_t entry, rt::Field<T> field, int64_t value) {
        size_t at = entry + field.offset;
        for (size_t i = 0; i < sizeof(T); ++i) Put(at + i, uint8_t(uint64_t(value) >> (8 * i)));
    }
    // Bytes as they are, from a record offset (BCD octets, big-endian ids).
    void Bytes(size_t at, std::span<const uint8_t> bytes) {
        for (size_t i = 0; i < bytes.size(); ++i) Put(at + i, bytes[i]);
    }

    size_t record_size() const { return kLogHeaderSize + bytes_.size(); }
    std::vector<uint8_t> Take() { return std::move(bytes_); }

  private:
    void Put(size_t record_offset, uint8_t byte) {
        if (record_offset < kLogHeaderSize || record_offset - kLogHeaderSize >= bytes_.size())
            return;
        bytes_[record_offset - kLogHeaderSize] = byte;
    }
    std::vector<uint8_t> bytes_;
};

}  // namespace modemsim
