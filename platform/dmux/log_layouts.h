// The log records as the DIAG library delivers them: its contract with the
// daemon, described once. For each log code the daemon follows: its size
// (the daemon keeps the first `kSize` bytes of each packet as the code's
// snapshot) and the fields read from it; for the codes that come in several
// versions, the version delivered (packet_versions/ brings older and newer
// ones to it, and keeps the facts of those versions to itself).
//
// Offsets count from the start of the log record: the 12-byte log header
// (length, code, timestamp), then the payload. Multi-byte fields are
// little-endian and may sit at any alignment. A snapshot whose first 16-bit
// word is 0 holds no packet.
//
// Record capacities (kMax...) are what the snapshot has room for; a count
// inside a packet may say more, and the reports cut it to the capacity.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/common/byte_layout.h"
#include "platform/dmux/diag_packet.h"

namespace log_layout {

// Word 0 of every record: its length, so zero in a snapshot while no packet
// has been stored.
inline constexpr rt::Field<uint16_t> kPacketWord{0};
inline constexpr rt::Field<uint16_t> kRecordLength = kPacketWord;
inline constexpr size_t kLogHeaderSize = dmux::kLogRecordHeaderSize;
// The first payload byte of the codes that come in several versions.
inline constexpr rt::Field<uint8_t> kVersion{kLogHeaderSize};

// --- WCDMA ------------------------------------------------------------------

// 0x4005: cell reselection values, one 10-byte entry per cell.
struct Reselection {
    static constexpr uint16_t kCode = 0x4005;
    static constexpr size_t kSize = 558;
    static constexpr rt::Field<int16_t> Srxlev(size_t i) { return {19 + 10 * i}; }
    static constexpr rt::Field<int16_t> Squal(size_t i) { return {22 + 10 * i}; }
};

// 0x410C: uplink transmit power of a dedicated channel.
struct TxPower {
    static constexpr uint16_t kCode = 0x410C;
    static constexpr size_t kSize = 29;
    static constexpr rt::Field<int8_t> kTxPower{12};
    static constexpr rt::Field<uint8_t> kPowerControlAlgorithm{16};
    static constexpr rt::Field<uint8_t> kPowerControlStep{17};
};

// 0x4110: the active set, its frequency and up to six 12-byte cells.
struct ActiveSet {
    static constexpr uint16_t kCode = 0x4110;
    static constexpr size_t kSize = 87;
    static constexpr size_t kMaxCells = 6;
    static constexpr rt::Field<uint8_t> kCellCount{12};
    static constexpr rt::Field<uint16_t> kUarfcn{13};
    static constexpr rt::Field<uint16_t> CellPsc(size_t k) { return {15 + 12 * k + 1}; }
    static constexpr rt::Field<uint32_t> CellId(size_t k) { return {15 + 12 * k + 8}; }
};

// 0x4111: the monitored set, up to three 227-byte frequency blocks of up to
// 32 seven-byte cells each.
struct MonitoredSet {
    static constexpr uint16_t kCode = 0x4111;
    static constexpr size_t kSize = 694;
    static constexpr size_t kMaxBlocks = 3;
    static constexpr size_t kMaxCellsPerBlock = 32;
    static constexpr rt::Field<uint8_t> kBlockCount{12};
    static constexpr size_t Block(size_t f) { return 13 + 227 * f; }
    static constexpr rt::Field<uint16_t> BlockUarfcn(size_t f) { return {Block(f)}; }
    static constexpr rt::Field<uint8_t> BlockCellCount(size_t f) { return {Block(f) + 2}; }
    static constexpr rt::Field<uint16_t> CellPsc(size_t f, size_t d) {
        return {Block(f) + 3 + 7 * d};
    }
    static constexpr rt::Field<uint32_t> CellId(size_t f, size_t d) {
        return {Block(f) + 3 + 7 * d + 3};
    }
};

// 0x4116: transport channels of the downlink, up to eight 9-byte records.
struct TransportChannels {
    static constexpr uint16_t kCode = 0x4116;
    static constexpr size_t kSize = 87;
    static constexpr size_t kMaxRecords = 8;
    static constexpr rt::Field<uint8_t> kRecordCount{12};
    static constexpr rt::Field<uint8_t> ChannelId(size_t k) { return {15 + 9 * k}; }
    static constexpr rt::Field<uint32_t> BlockErrorRate(size_t k) { return {20 + 9 * k}; }
};

// 0x4125: the RRC state.
struct RrcState {
    static constexpr uint16_t kCode = 0x4125;
    static constexpr size_t kSize = 13;
    static constexpr rt::Field<uint8_t> kState{12};
};

// 0x4127: the serving cell's identity, URA and barring.
struct CellIdentity {
    static constexpr uint16_t kCode = 0x4127;
    static constexpr size_t kSize = 28;
    static constexpr rt::Field<uint32_t> kCellId{20};
    static constexpr rt::Field<uint16_t> kUra{24};
    static constexpr rt::Field<uint8_t> kAccessFlags{26};
    static constexpr uint8_t kNotBarred = 0x01;  // the bit of kAccessFlags
};

// 0x4138: HSDPA rate, a selector and four 39-byte records.
struct HsdpaRate {
    static constexpr uint16_t kCode = 0x4138;
    static constexpr size_t kSize = 169;
    static constexpr size_t kMaxRecords = 4;
    static constexpr rt::Field<uint8_t> kSelector{12};
    static constexpr rt::Field<uint16_t> Rate(size_t k) { return {13 + 39 * k + 13}; }
};

// 0x4156: the UE's HSPA state and inter-RAT values.
struct HspaUeState {
    static constexpr uint16_t kCode = 0x4156;
    static constexpr size_t kSize = 390;
    static constexpr rt::Field<uint8_t> kUeState{12};
    static constexpr rt::Field<uint8_t> kIratCm{13};
    static constexpr rt::Field<uint16_t> kIratChannel{14};
    static constexpr rt::Field<int8_t> kIratCarrierRssi{16};
};

// 0x4165: received carrier power.
struct CarrierRssi {
    static constexpr uint16_t kCode = 0x4165;
    static constexpr size_t kSize = 514;
    static constexpr rt::Field<int16_t> kRawPower{14};
};

// 0x421C: HSDPA CQI samples, 250 of them, and the one to report.
struct Cqi {
    static constexpr uint16_t kCode = 0x421C;
    static constexpr size_t kSize = 516;
    static constexpr size_t kMaxSamples = 250;
    static constexpr rt::Field<uint8_t> kFormat{12};
    static constexpr rt::Field<uint8_t> kPosition{13};
    static constexpr rt::Field<uint16_t> Sample(size_t p) { return {16 + 2 * p}; }
};

// 0x7135: the serving PLMN, LAC and RAC.
struct LocationIdentity {
    static constexpr uint16_t kCode = 0x7135;
    static constexpr size_t kSize = 21;
    // Three octets in the BCD layout of 3GPP TS 24.008.
    static constexpr rt::Field<uint8_t> PlmnOctet(size_t i) { return {14 + i}; }
    static constexpr rt::Field<uint16_t> kLac{17};
    static constexpr rt::Field<uint8_t> kRac{19};
};

// 0x4000: whether compressed mode for inter-RAT measurement is on.
struct IratCompressedMode {
    static constexpr uint16_t kCode = 0x4000;
    static constexpr size_t kSize = 13;
    static constexpr rt::Field<uint8_t> kFlag{12};  // nonzero: on
};

// 0x4004: the DRX cycle in use.
struct Drx {
    static constexpr uint16_t kCode = 0x4004;
    static constexpr size_t kSize = 19;
    static constexpr rt::Field<uint16_t> kValue{12};
};

// 0x413A: the radio access bearers, 6-byte entries from offset 13 (32 of
// them fit); the byte at 12 selects the entry whose first word is reported.
struct RabId {
    static constexpr uint16_t kCode = 0x413A;
    static constexpr size_t kSize = 205;
    static constexpr size_t kMaxEntries = 32;
    static constexpr rt::Field<uint8_t> kSelector{12};
    static constexpr rt::Field<uint16_t> EntryRabId(size_t n) { return {13 + 6 * n}; }
};

// 0x7130 and 0x7131: the last GMM and MM update results.
struct GmmUpdateStatus {
    static constexpr uint16_t kCode = 0x7130;
    static constexpr size_t kSize = 15;
    static constexpr rt::Field<uint8_t> kStatus{14};
};
struct MmUpdateStatus {
    static constexpr uint16_t kCode = 0x7131;
    static constexpr size_t kSize = 15;
    static constexpr rt::Field<uint8_t> kStatus{14};
};

// 0x7136: the QoS profile of the active PDP context, one field code per
// byte, coded as in the QoS information element of 3GPP TS 24.008.
struct PdpQos {
    static constexpr uint16_t kCode = 0x7136;
    static constexpr size_t kSize = 30;
    static constexpr rt::Field<uint8_t> kConnectionId{12};
    static constexpr rt::Field<uint8_t> kDelayClass{13};
    static constexpr rt::Field<uint8_t> kReliabilityClass{14};
    static constexpr rt::Field<uint8_t> kPeakThroughput{15};
    static constexpr rt::Field<uint8_t> kPrecedence{16};
    static constexpr rt::Field<uint8_t> kMeanThroughput{17};
    static constexpr rt::Field<uint8_t> kTrafficClass{18};
    static constexpr rt::Field<uint8_t> kDeliveryOrder{19};
    static constexpr rt::Field<uint8_t> kErroneousSduDelivery{20};
    static constexpr rt::Field<uint8_t> kMaxSduSize{21};
    static constexpr rt::Field<uint8_t> kMaxBitRateUl{22};
    static constexpr rt::Field<uint8_t> kMaxBitRateDl{23};
    static constexpr rt::Field<uint8_t> kResidualBer{24};
    static constexpr rt::Field<uint8_t> kSduErrorRatio{25};
    static constexpr rt::Field<uint8_t> kTransferDelay{26};
    static constexpr rt::Field<uint8_t> kTrafficHandlingPriority{27};
    static constexpr rt::Field<uint8_t> kGuaranteedBitRateUl{28};
    static constexpr rt::Field<uint8_t> kGuaranteedBitRateDl{29};
    // The 18 codes in byte order, as a writer of the packet lays them out.
    static constexpr size_t kCodeCount = 18;
    static constexpr rt::Field<uint8_t> CodeAt(size_t i) { return {12 + i}; }
};

// --- LTE --------------------------------------------------------------------

// 0xB0C2, the serving cell, delivered in version 2's layout (37 bytes,
// 16-bit EARFCNs at 15 and 17) followed by both EARFCNs again as 32-bit
// words at 37 and 41. Bands 65 and up have EARFCNs above 65535: the 16-bit
// fields hold them cut to 65535, the words at 37 and 41 whole, and the
// report reads the words. Versions 2 and 3 are both translated into it.
// A delivered record keeps version byte 2 although it is longer than a
// modem's version 2: it is the daemon's, never fed to the translator again
// (a second pass would read it as a modem's and cut the words again).
struct LteServingCell {
    static constexpr uint16_t kCode = 0xB0C2;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 45;
    static constexpr rt::Field<uint16_t> kPci{13};
    static constexpr rt::Field<uint16_t> kDlEarfcnCut{15};
    static constexpr rt::Field<uint16_t> kUlEarfcnCut{17};
    static constexpr rt::Field<uint8_t> kDlBandwidthRb{19};
    static constexpr rt::Field<uint8_t> kUlBandwidthRb{20};
    static constexpr rt::Field<uint32_t> kCellId{21};
    static constexpr rt::Field<uint16_t> kTac{25};
    static constexpr rt::Field<uint32_t> kBand{27};
    static constexpr rt::Field<uint16_t> kMcc{31};
    static constexpr rt::Field<uint8_t> kMncDigits{33};
    static constexpr rt::Field<uint16_t> kMnc{34};
    static constexpr rt::Field<uint8_t> kAllowedAccess{36};
    static constexpr rt::Field<uint32_t> kDlEarfcn{37};
    static constexpr rt::Field<uint32_t> kUlEarfcn{41};
};

// 0xB0EE version 2: the UE identity (IMSI or GUTI). The PLMN and the
// M-TMSI's high bytes are big-endian, so they are read byte by byte.
struct LteUeIdentity {
    static constexpr uint16_t kCode = 0xB0EE;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 31;
    static constexpr rt::Field<uint8_t> PlmnByte(size_t i) { return {16 + i}; }  // i < 3
    static constexpr rt::Field<uint8_t> kValid{19};                              // 1: valid
    static constexpr rt::Field<uint8_t> kIdentityType{20};                       // 1 IMSI, 6 GUTI
    static constexpr rt::Field<uint16_t> kMmegi{24};
    static constexpr rt::Field<uint8_t> kMmec{26};
    static constexpr rt::Field<uint8_t> MTmsiByte(size_t i) { return {27 + i}; }  // i < 3
};

// 0xB179, serving-cell measurements, delivered in the single-carrier
// layout (352 bytes, numbered 2 here: a 16-bit EARFCN at 16 and the
// serving cell's values after it) followed by the EARFCN again as a 32-bit
// word at 352, read by the report: today's EARFCNs pass 65535. Only the
// fields below are carried; the neighbour lists are not (nothing reads
// them). The single-carrier layout and version 4 (one serving cell per
// packet, the primary's alone delivered) are both translated into it. As
// with 0xB0C2, a delivered record is never translated a second time.
struct LteServingMeasurements {
    static constexpr uint16_t kCode = 0xB179;
    static constexpr uint8_t kVersionValue = 2;
    static constexpr size_t kSize = 356;
    static constexpr rt::Field<uint16_t> kEarfcnCut{16};
    static constexpr rt::Field<uint16_t> kPci{18};
    static constexpr rt::Field<uint16_t> kSubframe{20};
    static constexpr rt::Field<int16_t> kRawRsrp{22};
    static constexpr rt::Field<int16_t> kRawRsrpDuplicate{24};
    static constexpr rt::Field<int16_t> kRawRsrq{26};
    static constexpr rt::Field<int16_t> kRawRsrqDuplicate{28};
    static constexpr rt::Field<uint32_t> kEarfcn{352};
};

// 0xB17F version 3, serving-cell measurement and evaluation (39 bytes): a
// 16-bit EARFCN at 16, the PCI at 18, measurement words from 20; the RSSI
// is bits 10 to 23 of the word at 32. Version 4 has this layout; version 5
// (a 32-bit EARFCN, everything after it 4 bytes later) is translated into
// it. The report reads the RSSI of version 3 only.
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
    static constexpr rt::Bits<uint32_t> kRssi{kRssiWord, 10, 14};
};

// 0xB185: three 6-byte CDMA neighbour entries.
struct LteCdmaNeighbours {
    static constexpr uint16_t kCode = 0xB185;
    static constexpr size_t kSize = 217;
    static constexpr size_t kEntries = 3;
    static constexpr rt::Field<uint16_t> PilotPn(size_t k) { return {25 + 6 * k}; }
    static constexpr rt::Field<int16_t> Rssi(size_t k) { return {25 + 6 * k + 2}; }
    static constexpr rt::Field<int16_t> Ecio(size_t k) { return {25 + 6 * k + 4}; }
};

// 0xB19B: WCDMA neighbours seen from LTE; entries are numbered from 1 and
// the snapshot has room for entries 1 to 31.
struct LteWcdmaNeighbours {
    static constexpr uint16_t kCode = 0xB19B;
    static constexpr size_t kSize = 532;
    static constexpr size_t kMaxEntries = 31;
    static constexpr rt::Field<uint16_t> kUarfcn{16};
    static constexpr rt::Field<uint8_t> kEntryCount{18};
    static constexpr rt::Field<int16_t> Rscp(size_t i) { return {32 + 16 * i}; }  // 1 <= i
};

// --- LTE RLC ----------------------------------------------------------------
// Version 1 packets with one subpacket: its id, version and size (counted
// from the subpacket's first byte, record offset 16) at 16 to 19.
inline constexpr uint8_t kRlcVersionValue = 1;
inline constexpr rt::Field<uint8_t> kSubpacketCount{13};
inline constexpr rt::Field<uint8_t> kSubpacketId{16};
inline constexpr rt::Field<uint8_t> kSubpacketVersion{17};
inline constexpr rt::Field<uint16_t> kSubpacketSize{18};
inline constexpr size_t kSubpacketStart = 16;

// 0xB081 (downlink, subpacket 0x40) and 0xB091 (uplink, subpacket 0x45),
// subpacket version 1: the RLC configuration. A 22-byte header whose byte
// 21 counts 3-byte records; rb_count follows them and the bearer list
// follows rb_count. List entries are of type 1 or 2, their length set by
// type and direction; 15 entries of the longer type fill a direction's
// list area exactly. (The store keeps the header, rb_count and the list.)
struct RlcConfig {
    static constexpr uint16_t kDlCode = 0xB081;
    static constexpr uint16_t kUlCode = 0xB091;
    static constexpr uint8_t kDlSubpacketId = 0x40;
    static constexpr uint8_t kUlSubpacketId = 0x45;
    static constexpr uint8_t kSubpacketVersionValue = 1;
    static constexpr size_t kHeaderSize = 22;
    static constexpr rt::Field<uint8_t> kSkipRecordCount{21};
    static constexpr size_t kSkipRecordSize = 3;
    static constexpr size_t RbCountOffset(size_t skip_records) {
        return 24 + kSkipRecordSize * skip_records;
    }
    static constexpr size_t kMaxListEntries = 15;
    struct ListShape {
        size_t area;
        size_t type1_length;
        size_t type2_length;
    };
    static constexpr ListShape kDlList{135, 9, 8};
    static constexpr ListShape kUlList{210, 14, 6};
    // Inside one list entry.
    static constexpr rt::Field<uint8_t> kEntryType{0};  // 1 or 2
    static constexpr rt::Field<uint8_t> kEntryCfgIdx{3};
    static constexpr rt::Field<uint8_t> kEntryKind{4};  // 1 SRB, 2 DRB
};

// 0xB087: RLC downlink statistics, subpacket 0x42 version 2: a 29-byte
// header with the entry count at 20, then 182-byte entries of 32-bit
// counters (offsets below are inside one entry).
struct RlcDlStats {
    static constexpr uint16_t kCode = 0xB087;
    static constexpr uint8_t kSubpacketIdValue = 0x42;
    static constexpr uint8_t kSubpacketVersionValue = 2;
    static constexpr size_t kHeaderSize = 29;
    static constexpr rt::Field<uint8_t> kCount{20};
    static constexpr size_t kEntrySize = 182;
    static constexpr rt::Field<uint8_t> kCfgIdx{0};
    static constexpr rt::Field<uint8_t> kMode{1};  // 1 AM, 2 UM
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
// with the entry count at 20, then 126-byte entries (offsets below are
// inside one entry).
struct RlcUlStats {
    static constexpr uint16_t kCode = 0xB097;
    static constexpr uint8_t kSubpacketIdValue = 0x47;
    static constexpr uint8_t kSubpacketVersionValue = 1;
    static constexpr size_t kHeaderSize = 25;
    static constexpr rt::Field<uint8_t> kCount{20};
    static constexpr size_t kEntrySize = 126;
    static constexpr rt::Field<uint8_t> kCfgIdx{0};
    static constexpr rt::Field<uint8_t> kMode{1};  // 1 AM, 2 UM
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
static_assert(RlcDlStats::kCount.offset == RlcUlStats::kCount.offset);

}  // namespace log_layout
