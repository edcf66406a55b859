// The DIAG log payloads of the WCDMA world (wcdma_world.h) at one moment.
// Offsets are payload bytes (a log record puts its 12-byte header first,
// so payload byte k is record byte 12 + k); multi-byte fields little-endian;
// every payload is as long as the daemon keeps of its code, zero-filled
// where nothing is said below.
//
//   0x4110 active set (75)      0 count u8, 1 UARFCN u16, cells at 3 + 12k
//                               (k < 6): PSC u16 at +1, cell id u32 at +8
//   0x4111 monitored set (682)  0 carrier count u8, carriers at 1 + 227F
//                               (F < 3, the serving carrier first): UARFCN
//                               u16 at +0, cell count u8 at +2, cells at
//                               +3 + 7d (d < 32): PSC u16 at +0, cell id
//                               u32 at +3
//   0x4127 cell identity (16)   8 serving cell id u32, 12 URA u16, 14 bit 0
//                               set when the cell is not barred
//   0x7135 location (9)         2..4 PLMN as 3GPP TS 24.008 BCD octets,
//                               5 LAC u16, 7 RAC u8
//   0x4005 reselection (546)    per active-set cell i = 0..5: Srxlev s16 at
//                               7 + 10i, Squal s16 at 10 + 10i
//   0x421C CQI (504)            0 format u8, 1 position u8 (249), 4 + 2p
//                               250 samples u16, all the current CQI
//   0x4138 HSDPA rate (157)     0 record selector u8 (0), records at 1 + 39k
//                               (k < 4): rate u16 at +13, in record 0
//   0x4116 transport BLER (75)  0 count u8, records at 3 + 9k (k < 8):
//                               channel id u8 at +0, BLER u32 at +5
//   0x4156 HSPA UE state (378)  0 UE state u8, 1 IRAT CM u8, 2 IRAT channel
//                               u16, 4 IRAT carrier RSSI s8
//   0x410C tx power (17)        0 tx power s8, 4 power-control algorithm
//                               u8, 5 step u8
//   0x4165 carrier RSSI (502)   2 raw s16, (raw + 512) / 10 - 106 = dBm
//   0x7131 MM status (3)        2 MM update status u8 (0 updated, 1 not)
//   0x7130 GMM status (3)       2 GMM update status u8 (0 updated, 1 not)
//   0x4004 DRX (7)              0 DRX cycle length coefficient u16
//   0x7136 PDP QoS (18)         0..17 the QoS codes of the RAB set up last,
//                               one per byte in kQosCodeNames order
//   0x4000 IRAT CM (1)          0 compressed mode flag u8 (the HSPA
//                               state's IRAT CM)
//   0x413A RABs (193)           0 the entry of the RAB set up last u8,
//                               entries at 1 + 6n (n < 32): RAB id u16
#pragma once

#include <cstdint>
#include <vector>

#include "tools/modemsim/log_payload.h"
#include "tools/modemsim/wcdma_world.h"

namespace modemsim {

// Every code above, in the order of the table.
std::vector<LogPayload> WcdmaLogPayloads(const WcdmaState& state);

// The CQI sample that encodes the state's CQI in its format and type.
uint16_t CqiSample(const WcdmaState& state);

// The raw 0x4165 value for a carrier RSSI in dBm.
int16_t RawCarrierRssi(int dbm);

}  // namespace modemsim
