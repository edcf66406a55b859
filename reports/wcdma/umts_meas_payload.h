// UmtsMeasPayload: the UMTS (RAT type 3) content of the 1331-byte RAT
// measurement response, as named fields. Offsets count from the start of
// the response buffer; bytes 0 to 9 hold the result TLV and the header of
// the measurement TLV. A failed request leaves every byte zero.
//
// Raw Ec/Io and RSCP are positive units: Ec/Io x -0.5 dB and RSCP x -0.1 dBm.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/common/byte_layout.h"
#include "qmi/vendor_requests.h"

namespace umts_meas {

inline constexpr rt::Field<uint8_t> kPresent{kRatMeasPresentOffset};
inline constexpr rt::Field<uint8_t> kRatType{kRatMeasRatTypeOffset};
inline constexpr rt::Field<uint8_t> kValid{kRatMeasValidOffset};

// The serving carrier, to which the intra-frequency cells belong.
inline constexpr rt::Field<uint16_t> kServingUarfcn{20};

// Cells of the intra-frequency list and of the active set share one
// 10-byte layout: PSC, Ec/Io, RSCP.
inline constexpr size_t kMaxIntraFreqCells = 8;
inline constexpr size_t kMaxActiveSetCells = 6;
inline constexpr rt::Field<uint8_t> kIntraFreqCount{24};
inline constexpr rt::Field<uint8_t> kActiveSetCount{25};
struct TenByteCell {
    size_t at;
    constexpr rt::Field<uint16_t> Psc() const { return {at}; }
    constexpr rt::Field<int16_t> EcIo() const { return {at + 2}; }
    constexpr rt::Field<int16_t> Rscp() const { return {at + 4}; }
};
constexpr TenByteCell IntraFreqCell(size_t k) {
    return {26 + 10 * k};
}
constexpr TenByteCell ActiveSetCell(size_t j) {
    return {106 + 10 * j};
}

// Inter-frequency blocks: a UARFCN and up to eight 12-byte cells each.
inline constexpr size_t kMaxInterFreqBlocks = 2;
inline constexpr size_t kMaxInterFreqCellsPerBlock = 8;
inline constexpr rt::Field<uint16_t> kInterFreqBlockCount{166};
constexpr size_t InterFreqBlock(size_t f) {
    return 168 + 102 * f;
}
constexpr rt::Field<uint16_t> InterFreqUarfcn(size_t f) {
    return {InterFreqBlock(f)};
}
constexpr rt::Field<uint16_t> InterFreqCellCount(size_t f) {
    return {InterFreqBlock(f) + 4};
}
constexpr TenByteCell InterFreqCell(size_t f, size_t c) {
    // The first six bytes of a 12-byte cell have the ten-byte cell's layout.
    return {InterFreqBlock(f) + 6 + 12 * c};
}

// GSM neighbours: ARFCN, BSIC, RSSI in 10-byte cells up to the buffer's end.
inline constexpr rt::Field<uint16_t> kGsmCount{372};
struct GsmCell {
    size_t at;
    constexpr rt::Field<uint16_t> Arfcn() const { return {at}; }
    constexpr rt::Field<uint16_t> Bsic() const { return {at + 2}; }
    constexpr rt::Field<int16_t> Rssi() const { return {at + 4}; }
};
constexpr GsmCell GsmNeighbour(size_t g) {
    return {374 + 10 * g};
}
// Whole GSM cells that fit in the 1331-byte buffer: (1331 - 374) / 10.
inline constexpr size_t kMaxGsmCells = (kRatMeasInfoResponseSize - 374) / 10;

// The payload can be read: measurements present, of the UMTS type, holding data.
inline bool IsValid(const rt::FieldReader& payload) {
    return payload.Get(kPresent) != 0 && payload.Get(kRatType) == kRatTypeUmts &&
           payload.Get(kValid) != 0;
}

}  // namespace umts_meas
