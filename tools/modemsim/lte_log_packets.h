// The DIAG log payloads of the LTE world (lte_world.h) at one moment, laid
// out at the named fields of diaglog/log_layouts.h (whose offsets count
// from the start of the log record, so a field at offset k is payload byte
// k - 12). Multi-byte fields are little-endian except the UE identity's
// PLMN octets and M-TMSI, which are big-endian.
//
//   0xB0C2 serving cell (25)        version 2; PCI, DL/UL EARFCN, DL/UL
//                                   bandwidth in RBs, cell id, TAC, band,
//                                   MCC, MNC digits (record byte 33), MNC
//   0xB179 measurements (340)       EARFCN, PCI, raw RSRP and RSRQ
//   0xB17F serving RSSI (27)        version 3; the RSSI word holds
//                                   v = (dBm + 110) * 16 in bits 10 to 23
//   0xB19B WCDMA neighbours (520)   UARFCN, count, RSCP of entries 1..31
//   0xB185 CDMA neighbours (205)    three entries: pilot PN, RSSI, Ec/Io
//   0xB0EE UE identity (19)         PLMN octets, valid, type, MMEGI, MMEC,
//                                   M-TMSI (4 bytes, big-endian)
//   0xB081 / 0xB091 RLC DL / UL configuration (variable): a 22-byte
//                                   record header whose byte 21 counts the
//                                   3-byte released records that follow
//                                   record byte 24, then rb_count, then the
//                                   bearer list: per bearer an entry of type
//                                   1 (AM; 9 bytes DL, 14 UL) or 2 (UM; 8 DL,
//                                   6 UL) with type, RB id, configuration
//                                   index and kind (1 SRB, 2 DRB) at entry
//                                   bytes 0, 1, 3 and 4
//   0xB087 / 0xB097 RLC DL / UL statistics (variable): the entry count at
//                                   record byte 20, then from record byte 29
//                                   (DL) or 25 (UL) one 182- or 126-byte
//                                   entry per configured bearer, in the
//                                   list's order
#pragma once

#include <cstdint>
#include <vector>

#include "tools/modemsim/log_payload.h"
#include "tools/modemsim/lte_world.h"

namespace modemsim {

// Every code above, in the order of the table.
std::vector<LogPayload> LteLogPayloads(const LteState& state);

// The 0xB17F word for an RSSI in dBm (-110 to -10).
uint32_t RssiWord(int dbm);

}  // namespace modemsim
