// One DIAG log packet's payload as a world builds it, and the writer that
// fills it. A payload has a fixed size and starts zero-filled; a write past
// its end is dropped, so a long list can never overrun it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/common/byte_layout.h"

namespace modemsim {

struct LogPayload {
    uint16_t code;
    std::vector<uint8_t> payload;
};

// The 12-byte log header a record puts before its payload: a layout field
// at snapshot offset k is payload byte k - 12.
inline constexpr size_t kLogHeaderSize = 12;

class PayloadWriter {
  public:
    explicit PayloadWriter(size_t size) : bytes_(size, 0) {}

    // Little-endian at a payload offset.
    void U8(size_t offset, uint64_t value) { Put(offset, 1, value); }
    void U16(size_t offset, uint64_t value) { Put(offset, 2, value); }
    void U32(size_t offset, uint64_t value) { Put(offset, 4, value); }

    // A named layout field, whose offset counts from the start of the log
    // record; a field inside the header is not the payload's to write.
    template <class T>
    void Set(rt::Field<T> field, int64_t value) {
        if (field.offset < kLogHeaderSize) return;
        Put(field.offset - kLogHeaderSize, sizeof(T), static_cast<uint64_t>(value));
    }

    // A field of a record inside the payload (an RLC statistics entry, a
    // bearer list entry), whose offset counts from the record's start.
    template <class T>
    void SetIn(size_t record_start, rt::Field<T> field, int64_t value) {
        Put(record_start + field.offset, sizeof(T), static_cast<uint64_t>(value));
    }

    size_t size() const { return bytes_.size(); }
    std::vector<uint8_t> Take() { return std::move(bytes_); }

  private:
    void Put(size_t offset, size_t width, uint64_t value) {
        if (offset > bytes_.size() || width > bytes_.size() - offset) return;
        for (size_t i = 0; i < width; ++i) bytes_[offset + i] = uint8_t(value >> (8 * i));
    }
    std::vector<uint8_t> bytes_;
};

}  // namespace modemsim
