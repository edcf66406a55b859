// The DIAG log payloads of the WCDMA world (wcdma_world.h) at one moment,
// one per code of wcdma_log_records.h, which describes each record:
//
//   0x4110 active set           UARFCN and up to six cells (PSC, cell id)
//   0x4111 monitored set        up to three carriers, the serving carrier
//                               first, each up to 32 cells (PSC, cell id)
//   0x4127 cell identity        serving cell id, URA, not-barred bit
//   0x7135 location             PLMN (3GPP TS 24.008 BCD octets), LAC, RAC
//   0x4005 reselection          Srxlev and Squal of each active-set cell
//   0x421C CQI                  format, position 249, 250 samples all
//                               holding the current CQI
//   0x4138 HSDPA rate           record 0 selected, holding the rate
//   0x4116 transport BLER       up to eight channels: id and BLER
//   0x4156 HSPA UE state        UE state, IRAT CM, channel and carrier RSSI
//   0x410C tx power             power, power-control algorithm and step
//   0x4165 carrier RSSI         raw, (raw + 512) / 10 - 106 = dBm
//   0x7131 / 0x7130             MM / GMM update status (0 updated, 1 not)
//   0x4004 DRX                  the cycle length coefficient
//   0x7136 PDP QoS              the QoS codes of the RAB set up last, one
//                               per byte in kQosCodeNames order
//   0x4000 IRAT CM              the HSPA state's IRAT CM flag
//   0x413A RABs                 the entry of the RAB set up last selected,
//                               up to 32 RAB ids
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
