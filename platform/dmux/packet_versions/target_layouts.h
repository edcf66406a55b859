// The layouts the daemon reads, as this library delivers them: for each log
// code whose packets get a version check, the version byte a delivered
// record carries, its size, and the offsets of the fields the daemon reads.
// The library cannot include the daemon's headers, so it describes the
// target here; a daemon-side test checks that these offsets and widths are
// the ones the daemon reads, so the two cannot drift apart.
//
// Offsets count from the start of the log record: the 12-byte log header
// (length, code, timestamp), then the payload. Byte 12 is the version.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/common/byte_layout.h"

namespace dmux::target {

inline constexpr rt::Field<uint16_t> kRecordLength{0};
inline constexpr rt::Field<uint8_t> kVersion{12};

// 0xB0C2 version 2: the serving cell, 16-bit EARFCNs.
struct LteServingCell {
    static constexpr uint16_t kCode = 0xB0C2;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 37;
    static constexpr rt::Field<uint16_t> kPci{13};
    static constexpr rt::Field<uint16_t> kDlEarfcn{15};
    static constexpr rt::Field<uint16_t> kUlEarfcn{17};
    static constexpr rt::Field<uint8_t> kDlBandwidthRb{19};
    static constexpr rt::Field<uint8_t> kUlBandwidthRb{20};
    static constexpr rt::Field<uint32_t> kCellId{21};
    static constexpr rt::Field<uint16_t> kTac{25};
    static constexpr rt::Field<uint32_t> kBand{27};
    static constexpr rt::Field<uint16_t> kMcc{31};
    static constexpr rt::Field<uint8_t> kMncDigits{33};
    static constexpr rt::Field<uint16_t> kMnc{34};
    static constexpr rt::Field<uint8_t> kAllowedAccess{36};
};

// 0xB0EE version 2: the UE identity. Delivered as it comes.
struct LteUeIdentity {
    static constexpr uint16_t kCode = 0xB0EE;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 31;
};

// 0xB179 single-carrier layout (no serving-cell index; EARFCN 16 bits right
// after a 4-byte header). No capture we have carries it: every modem there
// sends version 4. It is numbered 2 here; the daemon does not read the
// version byte of this code.
struct LteServingMeasurements {
    static constexpr uint16_t kCode = 0xB179;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 352;
    static constexpr rt::Field<uint16_t> kEarfcn{16};
    static constexpr rt::Field<uint16_t> kPci{18};
    static constexpr rt::Field<uint16_t> kSubframe{20};
    static constexpr rt::Field<int16_t> kRawRsrp{22};
    static constexpr rt::Field<int16_t> kRawRsrpDuplicate{24};
    static constexpr rt::Field<int16_t> kRawRsrq{26};
    static constexpr rt::Field<int16_t> kRawRsrqDuplicate{28};
    static constexpr rt::Field<uint8_t> kNeighbourCount{30};
    static constexpr rt::Field<uint8_t> kDetectedCount{31};
};

// 0xB17F version 3: serving-cell measurement and evaluation; the daemon
// takes the RSSI from bits 10 to 23 of the word at 32.
struct LteServingRssi {
    static constexpr uint16_t kCode = 0xB17F;
    static constexpr uint8_t kVersionValue = 3;
    static constexpr size_t kSize = 39;
    static constexpr rt::Field<uint16_t> kEarfcn{16};
    static constexpr rt::Field<uint16_t> kPci{18};
    static constexpr rt::Field<uint32_t> kMeasuredRsrp{20};
    static constexpr rt::Field<uint32_t> kAverageRsrp{24};
    static constexpr rt::Field<uint32_t> kRsrq{28};
    static constexpr rt::Field<uint32_t> kRssiWord{32};
};

// RLC packets: version 1, one subpacket (id, version, size at 16..19).
inline constexpr uint8_t kRlcVersionValue = 1;
inline constexpr rt::Field<uint8_t> kSubpacketCount{13};
inline constexpr rt::Field<uint8_t> kSubpacketId{16};
inline constexpr rt::Field<uint8_t> kSubpacketVersion{17};
inline constexpr rt::Field<uint16_t> kSubpacketSize{18};
// Subpacket sizes count from the subpacket's first byte, record offset 16.
inline constexpr size_t kSubpacketStart = 16;

// 0xB081 / 0xB091: RLC configuration, subpacket 0x40 / 0x45 version 1.
struct RlcDlConfig {
    static constexpr uint16_t kCode = 0xB081;
    static constexpr uint8_t kSubpacketIdValue = 0x40;
    static constexpr uint8_t kSubpacketVersionValue = 1;
    static constexpr size_t kHeaderSize = 22;
};
struct RlcUlConfig {
    static constexpr uint16_t kCode = 0xB091;
    static constexpr uint8_t kSubpacketIdValue = 0x45;
    static constexpr uint8_t kSubpacketVersionValue = 1;
    static constexpr size_t kHeaderSize = 22;
};

// 0xB087: RLC downlink statistics, subpacket 0x42 version 2: a 29-byte
// header with the entry count at 20, then 182-byte entries of 32-bit
// counters.
struct RlcDlStats {
    static constexpr uint16_t kCode = 0xB087;
    static constexpr uint8_t kSubpacketIdValue = 0x42;
    static constexpr uint8_t kSubpacketVersionValue = 2;
    static constexpr size_t kHeaderSize = 29;
    static constexpr rt::Field<uint8_t> kCount{20};
    static constexpr size_t kEntrySize = 182;
    // Inside one entry.
    static constexpr rt::Field<uint8_t> kCfgIdx{0};
    static constexpr rt::Field<uint8_t> kMode{1};
    static constexpr rt::Field<uint32_t> kNumRst{2};
    static constexpr rt::Field<uint32_t> kNumDataPdu{6};
    static constexpr rt::Field<uint32_t> kDataPduBytes{10};
    static constexpr rt::Field<uint32_t> kNumStatusRxed{14};
    static constexpr rt::Field<uint32_t> kStatusRxedBytes{18};
    static constexpr rt::Field<uint32_t> kNumInvalidPdu{22};
    static constexpr rt::Field<uint32_t> kInvalidPduBytes{26};
    static constexpr rt::Field<uint32_t> kNumRetxPdu{30};
    static constexpr rt::Field<uint32_t> kRetxPduBytes{34};
    static constexpr rt::Field<uint32_t> kNumDupPdu{38};
    static constexpr rt::Field<uint32_t> kDupPduBytes{42};
    static constexpr rt::Field<uint32_t> kNumDroppedPdu{46};
    static constexpr rt::Field<uint32_t> kDroppedPduBytes{50};
    static constexpr rt::Field<uint32_t> kNumDroppedPduFc{54};
    static constexpr rt::Field<uint32_t> kDroppedPduFcBytes{58};
    static constexpr rt::Field<uint32_t> kNumSdu{62};
    static constexpr rt::Field<uint32_t> kSduBytes{66};
    static constexpr rt::Field<uint32_t> kNumNonseqSdu{70};
    static constexpr rt::Field<uint32_t> kNumCtrlPdu{74};
    static constexpr rt::Field<uint32_t> kNumCompNack{78};
    static constexpr rt::Field<uint32_t> kNumSegmNack{82};
    static constexpr rt::Field<uint32_t> kNumTReordExp{86};
    // Counters since the last reset: 21 words from 94 (4 unused bytes at 90).
    static constexpr size_t kResetCountersStart = 94;
    static constexpr size_t kResetCounters = 21;
};

// 0xB097: RLC uplink statistics, subpacket 0x47 version 1: a 25-byte header
// with the entry count at 20, then 126-byte entries. Delivered as it comes.
struct RlcUlStats {
    static constexpr uint16_t kCode = 0xB097;
    static constexpr uint8_t kSubpacketIdValue = 0x47;
    static constexpr uint8_t kSubpacketVersionValue = 1;
    static constexpr size_t kHeaderSize = 25;
    static constexpr rt::Field<uint8_t> kCount{20};
    static constexpr size_t kEntrySize = 126;
};

}  // namespace dmux::target
