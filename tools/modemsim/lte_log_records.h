// The LTE log records modemsim writes, in the versions today's modems send,
// described here from public facts only: the captures' README
// (captures/README.md, "Expected values") and, where it gives no offsets,
// the bytes of the captures themselves. It is modemsim's own description,
// so that a wrong offset in the daemon's reader cannot hide in the writer.
//
// Offsets count from the start of the log record: the 12-byte log header
// (length u16, code u16, timestamp u64), then the payload, whose byte 0 is
// the packet version (record byte 12). Multi-byte fields are little-endian
// unless their comment says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/common/byte_layout.h"

namespace modemsim::lte_record {

inline constexpr rt::Field<uint8_t> kVersion{12};

// 0xB0C2 version 3, 41 bytes (README: "EARFCNs are u32. PCI u16 @13, DL u32
// @15, UL u32 @19, BW @23/@24, cell id u32 @25, TAC u16 @29, band u32 @31,
// MCC u16 @35, MNC digits u8 @37, MNC u16 @38, allowed access @40").
struct ServingCell {
    static constexpr uint16_t kCode = 0xB0C2;
    static constexpr uint8_t kVersionValue = 3;
    static constexpr size_t kSize = 41;
    static constexpr rt::Field<uint16_t> kPci{13};
    static constexpr rt::Field<uint32_t> kDlEarfcn{15};
    static constexpr rt::Field<uint32_t> kUlEarfcn{19};
    static constexpr rt::Field<uint8_t> kDlBandwidthRb{23};
    static constexpr rt::Field<uint8_t> kUlBandwidthRb{24};
    static constexpr rt::Field<uint32_t> kCellId{25};
    static constexpr rt::Field<uint16_t> kTac{29};
    static constexpr rt::Field<uint32_t> kBand{31};
    static constexpr rt::Field<uint16_t> kMcc{35};
    static constexpr rt::Field<uint8_t> kMncDigits{37};
    static constexpr rt::Field<uint16_t> kMnc{38};
};

// 0xB179 version 4 (README: "serving cell index u8 @16, EARFCN u32 @20, PCI
// u16 @24, subframe u16 @26, RSRP raw s16 @28, RSRQ raw s16 @32, neighbour
// count u8 @36, detected count u8 @37, then 12-byte neighbour entries from
// @40"). Index 0 is the primary cell. The ATT-iphone capture repeats each of
// RSRP and RSRQ in the word after it (@30, @34). modemsim logs no LTE
// neighbours, so its records end at 40.
struct ServingMeasurements {
    static constexpr uint16_t kCode = 0xB179;
    static constexpr uint8_t kVersionValue = 4;
    static constexpr size_t kSize = 40;
    static constexpr rt::Field<uint8_t> kServingCellIndex{16};
    static constexpr rt::Field<uint32_t> kEarfcn{20};
    static constexpr rt::Field<uint16_t> kPci{24};
    static constexpr rt::Field<int16_t> kRawRsrp{28};
    static constexpr rt::Field<int16_t> kRawRsrpRepeated{30};
    static constexpr rt::Field<int16_t> kRawRsrq{32};
    static constexpr rt::Field<int16_t> kRawRsrqRepeated{34};
    static constexpr rt::Field<uint8_t> kNeighbourCount{36};
    static constexpr rt::Field<uint8_t> kDetectedCount{37};
};

// 0xB17F version 5, 52 bytes, as the ATT-iphone capture's one packet holds
// it: EARFCN u32 @16 and PCI u16 @20 (5780 and 405, the cell its 0xB179
// names), then 32-bit measurement words from @24; the RSSI word @36 carries
// v = (dBm + 110) * 16 in bits 10 to 23 (0x000A8127: v 672, -68 dBm).
struct ServingRssi {
    static constexpr uint16_t kCode = 0xB17F;
    static constexpr uint8_t kVersionValue = 5;
    static constexpr size_t kSize = 52;
    static constexpr rt::Field<uint32_t> kEarfcn{16};
    static constexpr rt::Field<uint16_t> kPci{20};
    static constexpr rt::Field<uint32_t> kRssiWord{36};
    static constexpr unsigned kRssiShift = 10;
    static constexpr uint32_t kRssiMask = 0x3FFF;
};

// 0xB0EE version 2, 31 bytes, as every capture holds it (CMCC: PLMN octets
// 64 F0 00 for 460-00, tmobile: 13 00 62 for 310-260, the PLMN of their
// 0xB0C2): the PLMN as 3GPP TS 24.008 BCD octets @16, valid flag @19,
// identity type @20 (1 IMSI, 6 GUTI), the GUTI's PLMN again @21, MMEGI u16
// @24, MMEC @26, M-TMSI @27 (4 bytes, big-endian).
struct UeIdentity {
    static constexpr uint16_t kCode = 0xB0EE;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 31;
    static constexpr size_t kPlmn = 16;
    static constexpr rt::Field<uint8_t> kValid{19};
    static constexpr rt::Field<uint8_t> kIdentityType{20};
    static constexpr size_t kGutiPlmn = 21;
    static constexpr rt::Field<uint16_t> kMmegi{24};
    static constexpr rt::Field<uint8_t> kMmec{26};
    static constexpr size_t kMTmsi = 27;
};

// 0xB19B (no capture holds it), 532 bytes: UARFCN u16 @16, entry count u8
// @18, the RSCP (s16, dBm) of entry i (1 to 31) @32 + 16 * i.
struct WcdmaNeighbours {
    static constexpr uint16_t kCode = 0xB19B;
    static constexpr size_t kSize = 532;
    static constexpr rt::Field<uint16_t> kUarfcn{16};
    static constexpr rt::Field<uint8_t> kEntryCount{18};
    static constexpr size_t kMaxEntries = 31;
    static constexpr rt::Field<int16_t> Rscp(size_t i) { return {32 + 16 * i}; }
};

// 0xB185 (no capture holds it), 217 bytes: three 6-byte CDMA neighbour
// entries @25, @31, @37: pilot PN u16, RSSI s16, Ec/Io s16.
struct CdmaNeighbours {
    static constexpr uint16_t kCode = 0xB185;
    static constexpr size_t kSize = 217;
    static constexpr size_t kEntries = 3;
    static constexpr rt::Field<uint16_t> PilotPn(size_t k) { return {25 + 6 * k}; }
    static constexpr rt::Field<int16_t> Rssi(size_t k) { return {27 + 6 * k}; }
    static constexpr rt::Field<int16_t> Ecio(size_t k) { return {29 + 6 * k}; }
};

// The RLC packets: version 1 and one subpacket, whose id, version and size
// (u16, counted from its first byte @16 to the end of the record) follow
// @16. Every capture pads the subpacket to a multiple of 4 bytes
// (ATT-iphone 0xB081: 82 bytes of content, 84 logged, subpacket size 68).
namespace rlc {
inline constexpr uint8_t kVersionValue = 1;
inline constexpr rt::Field<uint8_t> kSubpacketCount{13};
inline constexpr size_t kSubpacketStart = 16;
inline constexpr rt::Field<uint8_t> kSubpacketId{16};
inline constexpr rt::Field<uint8_t> kSubpacketVersion{17};
inline constexpr rt::Field<uint16_t> kSubpacketSize{18};
inline constexpr size_t kSubpacketAlign = 4;
}  // namespace rlc

// 0xB081 / 0xB091 subpacket 0x40 / 0x45 version 1 (ATT-iphone, twilio): the
// count of 3-byte released records u8 @21, the records from @24, then the
// bearer count u8 @24 + 3 * released and the bearer list after it. A list
// entry: type @0 (1 AM, 2 UM), RB id @1, configuration index @3, kind @4
// (1 SRB, 2 DRB); ATT-iphone's downlink type-1 entries are 9 bytes
// ("01 03 03 03 02 3c 00 19 00"), its uplink ones 14. A type-2 entry is 8
// bytes downlink, 6 uplink.
struct RlcConfig {
    static constexpr uint16_t kDlCode = 0xB081;
    static constexpr uint16_t kUlCode = 0xB091;
    static constexpr uint8_t kDlSubpacketId = 0x40;
    static constexpr uint8_t kUlSubpacketId = 0x45;
    static constexpr uint8_t kSubpacketVersion = 1;
    static constexpr rt::Field<uint8_t> kReleasedCount{21};
    // Released record r's first byte; with r = the released count, the
    // bearer count.
    static constexpr rt::Field<uint8_t> Released(size_t r) { return {24 + 3 * r}; }
    static constexpr rt::Field<uint8_t> BearerCount(size_t released) { return Released(released); }
    // Inside one list entry.
    static constexpr rt::Field<uint8_t> kEntryType{0};
    static constexpr rt::Field<uint8_t> kEntryRbId{1};
    static constexpr rt::Field<uint8_t> kEntryCfgIdx{3};
    static constexpr rt::Field<uint8_t> kEntryKind{4};
    struct EntrySizes {
        size_t am, um;
    };
    static constexpr EntrySizes kDlEntry{9, 8};
    static constexpr EntrySizes kUlEntry{14, 6};
};

// 0xB087 subpacket 0x42 version 3 (README: "the RB count is u8 @20, RB
// entries of 262 bytes start @29"). Inside an entry (offline_log_example's
// first: index 0x21, AM, 4 data PDUs of 342 bytes, 5 status PDUs of 10
// bytes, 4 SDUs of 334 bytes, 4 control PDUs): configuration index @0, mode
// @1 (1 AM, 2 UM), resets u32 @2, then eight (count u32, bytes u64) pairs
// from @6 (data PDUs, status PDUs received, invalid, retransmitted,
// duplicate, dropped, dropped by flow control, SDUs @90), then the counts of
// non-sequential SDUs @102, control PDUs @106, complete and segment NACKs
// @110 and @114, t-reordering expiries @118.
struct RlcDlStats {
    static constexpr uint16_t kCode = 0xB087;
    static constexpr uint8_t kSubpacketId = 0x42;
    static constexpr uint8_t kSubpacketVersion = 3;
    static constexpr rt::Field<uint8_t> kCount{20};
    static constexpr size_t kEntriesStart = 29;
    static constexpr size_t kEntrySize = 262;
    static constexpr rt::Field<uint8_t> kCfgIdx{0};
    static constexpr rt::Field<uint8_t> kMode{1};
    static constexpr rt::Field<uint32_t> kNumRst{2};
    // Pair k: its count @6 + 12k, its bytes (u64) 4 bytes later.
    static constexpr rt::Field<uint32_t> PairCount(size_t k) { return {6 + 12 * k}; }
    static constexpr size_t kDataPdu = 0, kStatusRxed = 1, kInvalidPdu = 2, kRetxPdu = 3,
                            kDupPdu = 4, kDroppedPdu = 5, kDroppedPduFc = 6, kSdu = 7;
    static constexpr rt::Field<uint32_t> kNumNonseqSdu{102};
    static constexpr rt::Field<uint32_t> kNumCtrlPdu{106};
    static constexpr rt::Field<uint32_t> kNumCompNack{110};
    static constexpr rt::Field<uint32_t> kNumSegmNack{114};
    static constexpr rt::Field<uint32_t> kNumTReordExp{118};
};

// 0xB097 subpacket 0x47 version 1 (README: "the RB count is u8 @20, UL
// error count u32 @21, RB entries of 126 bytes start @25"). Inside an entry
// (twilio's second: index 0x23, 11 data PDUs): configuration index @0, mode
// @1, then u32 counters: resets @2, data PDUs @6, SDUs @14, control PDUs
// sent @22, retransmitted @30, control PDUs received @38, complete and
// segment NACKs @42 and @46, invalid control PDUs received @50, polls @54,
// t-poll-retransmit expiries @58.
struct RlcUlStats {
    static constexpr uint16_t kCode = 0xB097;
    static constexpr uint8_t kSubpacketId = 0x47;
    static constexpr uint8_t kSubpacketVersion = 1;
    static constexpr rt::Field<uint8_t> kCount{20};
    static constexpr size_t kEntriesStart = 25;
    static constexpr size_t kEntrySize = 126;
    static constexpr rt::Field<uint8_t> kCfgIdx{0};
    static constexpr rt::Field<uint8_t> kMode{1};
    static constexpr rt::Field<uint32_t> kNumRst{2};
    static constexpr rt::Field<uint32_t> kNumDataPdu{6};
    static constexpr rt::Field<uint32_t> kNumSdu{14};
    static constexpr rt::Field<uint32_t> kNumCtrlPduTx{22};
    static constexpr rt::Field<uint32_t> kNumRetxPdu{30};
    static constexpr rt::Field<uint32_t> kNumCtrlPduRx{38};
    static constexpr rt::Field<uint32_t> kNumCompNack{42};
    static constexpr rt::Field<uint32_t> kNumSegmNack{46};
    static constexpr rt::Field<uint32_t> kNumInvalidCtrlPduRx{50};
    static constexpr rt::Field<uint32_t> kNumPoll{54};
    static constexpr rt::Field<uint32_t> kNumTPollRetxExpiry{58};
};

}  // namespace modemsim::lte_record
