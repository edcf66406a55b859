// modemsim's LTE world: the serving LTE cell and its signal, the WCDMA,
// CDMA and GERAN neighbours seen from it, the UE's identity and the RLC
// radio bearers of a connection with their counters. Both sides of the
// modem read it: the QMI side measures its GERAN neighbours for the RAT
// measurement answer (type 4), the DIAG side logs the rest
// (lte_log_packets.h), so a scenario change moves both.
//
// The world moves with time, deterministically: every signal value drifts
// on a sine around its base, never further than its drift amplitude; every
// `handover_period_ms` the UE hands over to the next cell of `cells` (at
// step h = seconds * 1000 / period the serving cell is cells[h % N]), and
// each handover re-establishes the RLC bearers, so their reset counters
// count the handovers. Every other RLC counter grows with the bytes a
// bearer has carried since the world began: a bearer moving `rate` PDUs a
// second has carried floor(rate * seconds) data PDUs, and the other
// counters are fixed fractions of that.
//
// Scenario "lte" section (merged over DefaultLteScenario()):
//   enabled             false: the QMI side answers type 4 from qmi.lte_geran
//                       and the DIAG side logs none of the LTE codes
//   period_ms           how often the DIAG side logs each of the world's codes
//   handover_period_ms  time between two handovers
//   drift_period_ms     period of the sine every value drifts on
//   mcc, mnc            the serving PLMN (mnc_digits 2 or 3; default 3 when
//                       mnc >= 100); the UE identity's PLMN bytes are its
//                       3GPP TS 24.008 BCD octets
//   dl_earfcn, ul_earfcn, dl_bandwidth_rb, ul_bandwidth_rb (6, 15, 25, 50,
//                       75 or 100), band, tac: the serving carrier
//   cells               [{"pci", "cell_id", "rsrp", "rsrq"}]: the cells the
//                       UE is served by in turn; rsrp and rsrq are raw
//                       (dBm = rsrp / 16 - 180, dB = rsrq / 16 - 30); a cell
//                       may name its own dl_earfcn, ul_earfcn,
//                       dl_bandwidth_rb, ul_bandwidth_rb, band or tac
//   rssi                serving-cell RSSI, dBm (-110 to -10)
//   ue_identity         {"type" ("imsi", "guti" or a number), "valid",
//                       "mmegi", "mmec", "m_tmsi"}
//   wcdma               {"uarfcn", "rscp": [dBm, ...]}: up to 31 neighbours
//   cdma                [{"pilot_pn", "rssi", "ecio"}]: three neighbours, raw
//   geran               [{"cells": [{"bsic", "rssi", "present"}]}]: frequency
//                       groups (up to 13 of up to 8 cells); rssi in 0.1 dBm
//   rlc                 {"released": N (3-byte records before the bearer
//                       list), "bearers": [{"cfg_idx", "rb_id", "kind" ("srb"
//                       or "drb"), "mode" ("AM" or "UM"), "dl_rate",
//                       "ul_rate"}]}: one bearer list for both directions;
//                       an AM bearer's list entry is of type 1, a UM
//                       bearer's of type 2
//   drift               amplitudes: {"rsrp", "rsrq" (raw), "rssi" (dB),
//                       "rscp" (dB), "cdma" (raw), "geran_rssi" (0.1 dB)}
#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/modemsim/world_clock.h"

namespace modemsim {

nlohmann::json DefaultLteScenario();

enum class RlcMode : uint8_t { kAm = 1, kUm = 2 };
enum class RbKind : uint8_t { kSrb = 1, kDrb = 2 };

struct RlcBearer {
    uint8_t cfg_idx = 0;
    uint8_t rb_id = 0;
    RbKind kind = RbKind::kDrb;
    RlcMode mode = RlcMode::kAm;
};

// Downlink counters of one bearer, as the statistics entry names them.
struct RlcDlCounters {
    uint32_t num_rst = 0, num_data_pdu = 0, num_status_rxed = 0, num_invalid_pdu = 0,
             num_retx_pdu = 0, num_dup_pdu = 0, num_dropped_pdu = 0, num_dropped_pdu_fc = 0,
             num_sdu = 0, num_nonseq_sdu = 0, num_ctrl_pdu = 0, num_comp_nack = 0,
             num_segm_nack = 0, num_t_reord_exp = 0;
};

// Uplink counters of one bearer.
struct RlcUlCounters {
    uint32_t num_rst = 0, num_data_pdu = 0, num_sdu = 0, num_ctrl_pdu_tx = 0, num_retx_pdu = 0,
             num_ctrl_pdu_rx = 0, num_comp_nack = 0, num_segm_nack = 0, num_invalid_ctrl_pdu_rx = 0,
             num_poll = 0, num_t_poll_retx_expiry = 0;
};

struct RlcDlStats {
    RlcBearer bearer;
    RlcDlCounters counters;
};
struct RlcUlStats {
    RlcBearer bearer;
    RlcUlCounters counters;
};

struct CdmaNeighbour {
    uint16_t pilot_pn = 0;
    int16_t rssi = 0;
    int16_t ecio = 0;
};

struct GeranCell {
    bool present = true;
    uint8_t bsic = 0;
    int rssi = 0;  // 0.1 dBm
};
struct GeranGroup {
    std::vector<GeranCell> cells;
};

enum class UeIdentityType : uint8_t { kImsi = 1, kGuti = 6 };

// The world at one moment.
struct LteState {
    // Serving cell.
    uint16_t pci = 0;
    uint32_t cell_id = 0;
    uint32_t dl_earfcn = 0;
    uint32_t ul_earfcn = 0;
    uint8_t dl_bandwidth_rb = 0;
    uint8_t ul_bandwidth_rb = 0;
    uint32_t band = 0;
    uint16_t tac = 0;
    int mcc = 0;
    int mnc = 0;
    int mnc_digits = 3;
    unsigned handovers = 0;  // since the world began

    // Serving measurements, raw.
    int16_t rsrp = 0;
    int16_t rsrq = 0;
    int rssi_dbm = 0;

    uint16_t wcdma_uarfcn = 0;
    std::vector<int16_t> wcdma_rscp;  // dBm
    std::vector<CdmaNeighbour> cdma;
    std::vector<GeranGroup> geran;

    bool identity_valid = true;
    uint8_t identity_type = uint8_t(UeIdentityType::kGuti);
    uint16_t mmegi = 0;
    uint8_t mmec = 0;
    uint32_t m_tmsi = 0;

    uint8_t rlc_released = 0;
    std::vector<RlcBearer> bearers;  // the configuration list, both directions
    std::vector<RlcDlStats> rlc_dl;  // statistics entries, in the list's order
    std::vector<RlcUlStats> rlc_ul;

    // The PLMN's three BCD octets (3GPP TS 24.008).
    std::vector<uint8_t> PlmnOctets() const;
};

class LteWorld : public WorldClock {
  public:
    // `section` is merged over DefaultLteScenario(); time starts now.
    explicit LteWorld(const nlohmann::json& section);

    // The world `seconds` after it began. Thread-safe: the world never
    // changes, only the moment asked for.
    LteState At(double seconds) const;
};

// The world's GERAN neighbours in the shape of the scenario's qmi.lte_geran
// section, which the vendor service turns into the type-4 payload.
nlohmann::json LteGeranMeasurementJson(const LteState& state);

}  // namespace modemsim
