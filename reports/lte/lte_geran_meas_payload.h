// LteGeranMeasPayload: the LTE-with-GERAN-neighbours (RAT type 4) content of
// the 1331-byte RAT measurement response, as named fields. Offsets count
// from the start of the response buffer; bytes 13 to 275 are not read.
//
// The GERAN neighbours come in frequency groups of 77 bytes: a cell count,
// three unread bytes, then up to eight 9-byte cells (present flag, BSIC,
// RSSI in tenths of a dBm, five unread bytes).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/common/byte_layout.h"
#include "qmi/vendor_requests.h"

namespace lte_geran_meas {

inline constexpr rt::Field<uint8_t> kPresent{kRatMeasPresentOffset};
inline constexpr rt::Field<uint8_t> kRatType{kRatMeasRatTypeOffset};
inline constexpr rt::Field<uint8_t> kValid{kRatMeasValidOffset};

inline constexpr rt::Field<uint8_t> kGroupCount{276};
inline constexpr size_t kFirstGroup = 277;
inline constexpr size_t kGroupSize = 77;
inline constexpr size_t kCellSize = 9;
inline constexpr size_t kFirstCellInGroup = 4;

// Whole groups that fit in the buffer: (1331 - 277) / 77 = 13.
inline constexpr size_t kMaxGroups = (kRatMeasInfoResponseSize - kFirstGroup) / kGroupSize;
// Whole cells that fit in a group: (77 - 4) / 9 = 8.
inline constexpr size_t kMaxCellsPerGroup = (kGroupSize - kFirstCellInGroup) / kCellSize;

constexpr size_t Group(size_t g) {
    return kFirstGroup + kGroupSize * g;
}
constexpr rt::Field<uint8_t> GroupCellCount(size_t g) {
    return {Group(g)};
}
struct Cell {
    size_t at;
    constexpr rt::Field<uint8_t> Present() const { return {at}; }
    constexpr rt::Field<uint8_t> Bsic() const { return {at + 1}; }
    constexpr rt::Field<int16_t> Rssi() const { return {at + 2}; }
};
constexpr Cell GroupCell(size_t g, size_t e) {
    return {Group(g) + kFirstCellInGroup + kCellSize * e};
}

// The payload can be read: measurements present, of type 4, holding data.
inline bool IsValid(const rt::FieldReader& payload) {
    return payload.Get(kPresent) != 0 && payload.Get(kRatType) == kRatTypeLteGeran &&
           payload.Get(kValid) != 0;
}

}  // namespace lte_geran_meas
