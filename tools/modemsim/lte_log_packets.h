// The DIAG log payloads of the LTE world (lte_world.h) at one moment, in
// the versions today's modems send (lte_log_records.h describes each):
//
//   0xB0C2 serving cell, v3         PCI, DL/UL EARFCN, DL/UL bandwidth in
//                                   RBs, cell id, TAC, band, MCC, MNC digits,
//                                   MNC
//   0xB179 measurements, v4         primary cell (index 0): EARFCN, PCI, raw
//                                   RSRP and RSRQ; no neighbour lists
//   0xB17F serving RSSI, v5         EARFCN, PCI, the RSSI word
//   0xB19B WCDMA neighbours         UARFCN, count, RSCP of entries 1..31
//   0xB185 CDMA neighbours          three entries: pilot PN, RSSI, Ec/Io
//   0xB0EE UE identity, v2          PLMN octets, valid, type, MMEGI, MMEC,
//                                   M-TMSI (4 bytes, big-endian)
//   0xB081 / 0xB091 RLC DL / UL configuration, subpacket v1: the released
//                                   records, then the bearer list, one entry
//                                   per bearer (type 1 for AM, 2 for UM)
//   0xB087 RLC DL statistics, subpacket v3: one 262-byte entry (64-bit byte
//                                   counters) per bearer, in the list's order
//   0xB097 RLC UL statistics, subpacket v1: one 126-byte entry per bearer
//
// The DIAG library brings the versioned ones to the layouts the daemon
// reads, exactly as it does with a real modem's packets.
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
