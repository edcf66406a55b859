// One DIAG log packet's payload as a world builds it. The builder is given
// the size of the whole log record, and its fields are written at offsets
// from the record's start, as the record descriptions (lte_log_records.h,
// wcdma_log_records.h) give them; the payload is the record less its
// 12-byte log header, which the DIAG side puts in front. A record starts
// zero-filled; a field that does not fit is not written, so a long list can
// never overrun it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/common/byte_layout.h"

namespace modemsim {

struct LogPayload {
    uint16_t code;
    std::vector<uint8_t> payload;
};

// Length, code and timestamp, before every payload.
inline constexpr size_t kLogHeaderSize = 12;

// A record of `record_size` bytes whose fields `fill(rt::FieldWriter&)`
// writes; returns its payload.
template <class Fill>
std::vector<uint8_t> BuildPayload(size_t record_size, Fill fill) {
    std::vector<uint8_t> record(std::max(record_size, kLogHeaderSize), 0);
    rt::FieldWriter writer(record);
    fill(writer);
    record.erase(record.begin(), record.begin() + kLogHeaderSize);
    return record;
}

}  // namespace modemsim
