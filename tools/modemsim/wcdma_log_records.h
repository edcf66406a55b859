// The WCDMA and UMTS NAS log records modemsim writes, field by field.
// These codes carry no version byte and the DIAG library delivers them as
// they come, so each has one layout. No public capture holds them
// (captures/README.md lists them as absent).
//
// Offsets count from the start of the log record: the 12-byte log header,
// then the payload (record byte 12 is payload byte 0). Multi-byte fields
// are little-endian. Each record is written at the size given, zero-filled
// where nothing is said.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/common/byte_layout.h"

namespace modemsim::wcdma_record {

// 0x4110 active set: cell count, UARFCN, six 12-byte cells (PSC at +1,
// cell identity u32 at +8).
struct ActiveSet {
    static constexpr uint16_t kCode = 0x4110;
    static constexpr size_t kSize = 87;
    static constexpr size_t kMaxCells = 6;
    static constexpr rt::Field<uint8_t> kCount{12};
    static constexpr rt::Field<uint16_t> kUarfcn{13};
    static constexpr rt::Field<uint16_t> Psc(size_t k) { return {15 + 12 * k + 1}; }
    static constexpr rt::Field<uint32_t> CellId(size_t k) { return {15 + 12 * k + 8}; }
};

// 0x4111 monitored set: block count, then three 227-byte frequency blocks
// (UARFCN, cell count, 32 cells of 7 bytes: PSC at +0, cell identity at +3).
struct MonitoredSet {
    static constexpr uint16_t kCode = 0x4111;
    static constexpr size_t kSize = 694;
    static constexpr size_t kMaxBlocks = 3;
    static constexpr size_t kMaxCells = 32;
    static constexpr rt::Field<uint8_t> kBlockCount{12};
    static constexpr size_t Block(size_t f) { return 13 + 227 * f; }
    static constexpr rt::Field<uint16_t> kBlockUarfcn{0};
    static constexpr rt::Field<uint8_t> kBlockCellCount{2};
    static constexpr rt::Field<uint16_t> CellPsc(size_t d) { return {3 + 7 * d}; }
    static constexpr rt::Field<uint32_t> CellId(size_t d) { return {3 + 7 * d + 3}; }
};

// 0x4127 cell identity: serving cell identity, URA, bit 0 of @26 set when
// the cell is not barred.
struct CellIdentity {
    static constexpr uint16_t kCode = 0x4127;
    static constexpr size_t kSize = 28;
    static constexpr rt::Field<uint32_t> kCellId{20};
    static constexpr rt::Field<uint16_t> kUra{24};
    static constexpr rt::Field<uint8_t> kNotBarred{26};
};

// 0x7135 location: the PLMN as 3GPP TS 24.008 BCD octets @14..16, LAC, RAC.
struct Location {
    static constexpr uint16_t kCode = 0x7135;
    static constexpr size_t kSize = 21;
    static constexpr size_t kPlmn = 14;
    static constexpr rt::Field<uint16_t> kLac{17};
    static constexpr rt::Field<uint8_t> kRac{19};
};

// 0x4005 reselection: per active-set cell i (0 to 5) Srxlev and Squal.
struct Reselection {
    static constexpr uint16_t kCode = 0x4005;
    static constexpr size_t kSize = 558;
    static constexpr rt::Field<int16_t> Srxlev(size_t i) { return {19 + 10 * i}; }
    static constexpr rt::Field<int16_t> Squal(size_t i) { return {22 + 10 * i}; }
};

// 0x421C CQI: sample format, the position to report, 250 u16 samples.
struct Cqi {
    static constexpr uint16_t kCode = 0x421C;
    static constexpr size_t kSize = 516;
    static constexpr size_t kSamples = 250;
    static constexpr rt::Field<uint8_t> kFormat{12};
    static constexpr rt::Field<uint8_t> kPosition{13};
    static constexpr rt::Field<uint16_t> Sample(size_t p) { return {16 + 2 * p}; }
};

// 0x4138 HSDPA rate: a record selector, four 39-byte records with the rate
// u16 at +13.
struct HsdpaRate {
    static constexpr uint16_t kCode = 0x4138;
    static constexpr size_t kSize = 169;
    static constexpr rt::Field<uint8_t> kSelector{12};
    static constexpr rt::Field<uint16_t> Rate(size_t k) { return {13 + 39 * k + 13}; }
};

// 0x4116 transport-channel BLER: count, eight 9-byte records (channel id
// at +0, BLER u32 at +5).
struct TransportBler {
    static constexpr uint16_t kCode = 0x4116;
    static constexpr size_t kSize = 87;
    static constexpr size_t kMaxChannels = 8;
    static constexpr rt::Field<uint8_t> kCount{12};
    static constexpr rt::Field<uint8_t> ChannelId(size_t k) { return {15 + 9 * k}; }
    static constexpr rt::Field<uint32_t> Bler(size_t k) { return {15 + 9 * k + 5}; }
};

// 0x4156 HSPA UE state: UE state, IRAT compressed mode, IRAT channel, IRAT
// carrier RSSI (s8).
struct HspaUeState {
    static constexpr uint16_t kCode = 0x4156;
    static constexpr size_t kSize = 390;
    static constexpr rt::Field<uint8_t> kUeState{12};
    static constexpr rt::Field<uint8_t> kIratCm{13};
    static constexpr rt::Field<uint16_t> kIratChannel{14};
    static constexpr rt::Field<int8_t> kIratCarrierRssi{16};
};

// 0x410C transmit power: power (s8), power-control algorithm and step.
struct TxPower {
    static constexpr uint16_t kCode = 0x410C;
    static constexpr size_t kSize = 29;
    static constexpr rt::Field<int8_t> kPower{12};
    static constexpr rt::Field<uint8_t> kAlgorithm{16};
    static constexpr rt::Field<uint8_t> kStep{17};
};

// 0x4165 carrier RSSI: raw s16, (raw + 512) / 10 - 106 = dBm.
struct CarrierRssi {
    static constexpr uint16_t kCode = 0x4165;
    static constexpr size_t kSize = 514;
    static constexpr rt::Field<int16_t> kRaw{14};
};

// 0x7131 MM and 0x7130 GMM status: the update status (0 updated, 1 not).
struct UpdateStatus {
    static constexpr uint16_t kMmCode = 0x7131;
    static constexpr uint16_t kGmmCode = 0x7130;
    static constexpr size_t kSize = 15;
    static constexpr rt::Field<uint8_t> kStatus{14};
};

// 0x4004 DRX: the cycle length coefficient.
struct Drx {
    static constexpr uint16_t kCode = 0x4004;
    static constexpr size_t kSize = 19;
    static constexpr rt::Field<uint16_t> kValue{12};
};

// 0x7136 PDP QoS: 18 QoS field codes, one byte each, from @12.
struct PdpQos {
    static constexpr uint16_t kCode = 0x7136;
    static constexpr size_t kSize = 30;
    static constexpr size_t kCodes = 18;
    static constexpr rt::Field<uint8_t> Code(size_t i) { return {12 + i}; }
};

// 0x4000 IRAT compressed mode: the flag.
struct IratCompressedMode {
    static constexpr uint16_t kCode = 0x4000;
    static constexpr size_t kSize = 13;
    static constexpr rt::Field<uint8_t> kFlag{12};
};

// 0x413A RABs: the selected entry, then 32 six-byte entries whose first
// u16 is the RAB id.
struct Rabs {
    static constexpr uint16_t kCode = 0x413A;
    static constexpr size_t kSize = 205;
    static constexpr size_t kMaxEntries = 32;
    static constexpr rt::Field<uint8_t> kSelector{12};
    static constexpr rt::Field<uint16_t> RabId(size_t n) { return {13 + 6 * n}; }
};

}  // namespace modemsim::wcdma_record
