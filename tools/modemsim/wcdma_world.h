// modemsim's WCDMA world: one serving carrier with its active set, the
// monitored cells on it and on other carriers, GSM neighbours, the cell's
// identities and the HSPA and dedicated-channel state of a connection. Both
// sides of the modem read it: the QMI side measures it for the RAT
// measurement answer (type 3), the DIAG side logs it (wcdma_log_packets.h),
// so the two always name the same cells.
//
// The world moves with time, deterministically: every signal value drifts
// on a sine around its base, never further than its drift amplitude, and
// every `handover_period_ms` a soft handover moves the active set one cell
// along the serving carrier's cell list (the first active cell leaves, the
// next monitored one joins). At step h (h = seconds * 1000 / period) the
// active set is cells[(h + i) % N] for i = 0 .. active_set_size - 1; active
// cell 0 is the serving cell. The serving carrier's cells outside the active
// set are its intra-frequency monitored cells, in list order from the one
// after the active set.
//
// Scenario "wcdma" section (merged over DefaultWcdmaScenario()):
//   enabled             false: the QMI side answers type 3 from qmi.umts and
//                       the DIAG side logs none of the codes below
//   period_ms           how often the DIAG side logs each of the world's codes
//   handover_period_ms  time between two soft handovers
//   drift_period_ms     period of the sine every value drifts on
//   uarfcn              the serving carrier
//   active_set_size     cells in the active set (1 to 6, at most the cells)
//   cells               [{"psc", "cell_id", "ecio", "rscp"}]: the serving
//                       carrier's cells (ecio in 0.5 dB, rscp in 0.1 dB,
//                       positive: 10 is -5.0 dB, 950 is -95.0 dBm)
//   inter_freq          [{"uarfcn", "cells": [as above]}]: up to 2 carriers
//   gsm                 [{"arfcn", "bsic", "rssi"}]: rssi in 0.1 dBm
//   identity            {"mcc", "mnc", "mnc_digits" (2 or 3; default 3 when
//                       mnc >= 100), "lac", "rac", "ura", "barred"}
//   reselection         {"qqualmin", "qrxlevmin"}: Squal = Ec/Io - qqualmin,
//                       Srxlev = RSCP - qrxlevmin (dB, whole numbers)
//   hspa                {"cqi_format" (0 or 1), "cqi_type" ("A", "B", "DTX",
//                       "DCHSPA"), "cqi", "rate", "ue_state", "irat_cm"};
//                       the IRAT channel and carrier RSSI are the first GSM
//                       neighbour's ARFCN and RSSI
//   dch                 {"tx_power" (dBm), "pc_algorithm", "pc_step",
//                       "carrier_rssi" (dBm), "transport_channels":
//                       [{"id", "bler"}]}
//   drift               amplitudes: {"ecio", "rscp", "gsm_rssi" (raw units),
//                       "carrier_rssi", "tx_power" (dB), "cqi", "rate",
//                       "bler"}
//   mobility            {"drx" (the CN DRX cycle length coefficient),
//                       "mm_status", "gmm_status" (the results once
//                       updated), "update_period_ms", "update_ms"}: every
//                       update period begins with a periodic location and
//                       routing area update lasting update_ms, during which
//                       both statuses are 1 (not updated); 0 never updates
//   bearers             {"rab_period_ms", "rabs": [{"rab_id", "qos": {...}}]}:
//                       every rab_period_ms the next RAB of the list is set
//                       up (in turn, from the first); "qos" holds the PDP
//                       context's 18 QoS codes of 3GPP TS 24.008 by name
//                       (see kQosCodeNames), a missing one is 0
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/modemsim/world_clock.h"

namespace modemsim {

nlohmann::json DefaultWcdmaScenario();

struct UmtsCell {
    uint16_t psc = 0;
    uint32_t cell_id = 0;
    int ecio = 0;  // raw, 0.5 dB units, positive
    int rscp = 0;  // raw, 0.1 dB units, positive
};

struct UmtsCarrier {
    uint16_t uarfcn = 0;
    std::vector<UmtsCell> cells;
};

struct GsmCell {
    uint16_t arfcn = 0;
    uint16_t bsic = 0;
    int rssi = 0;  // 0.1 dBm
};

struct TransportChannel {
    uint8_t id = 0;
    uint32_t bler = 0;
};

enum class CqiType { kTypeA, kTypeB, kDtx, kDchspa };

// The names of a "qos" object's codes, in the order of the profile's bytes.
inline constexpr std::array<const char*, 18> kQosCodeNames = {"connection_id",
                                                              "delay_class",
                                                              "reliability_class",
                                                              "peak_throughput",
                                                              "precedence",
                                                              "mean_throughput",
                                                              "traffic_class",
                                                              "delivery_order",
                                                              "erroneous_sdu_delivery",
                                                              "max_sdu_size",
                                                              "max_bit_rate_ul",
                                                              "max_bit_rate_dl",
                                                              "residual_ber",
                                                              "sdu_error_ratio",
                                                              "transfer_delay",
                                                              "traffic_handling_priority",
                                                              "guaranteed_bit_rate_ul",
                                                              "guaranteed_bit_rate_dl"};
using QosCodes = std::array<uint8_t, kQosCodeNames.size()>;

// The world at one moment.
struct WcdmaState {
    uint16_t uarfcn = 0;
    std::vector<UmtsCell> active_set;       // [0] is the serving cell
    std::vector<UmtsCell> monitored_intra;  // on `uarfcn`, outside the active set
    std::vector<UmtsCarrier> inter_freq;
    std::vector<GsmCell> gsm;

    int mcc = 0;
    int mnc = 0;
    int mnc_digits = 3;
    uint16_t lac = 0;
    uint8_t rac = 0;
    uint16_t ura = 0;
    bool barred = false;

    int qqualmin = 0;
    int qrxlevmin = 0;

    int cqi_format = 1;
    CqiType cqi_type = CqiType::kTypeA;
    int cqi = 0;
    uint16_t hsdpa_rate = 0;
    uint8_t ue_state = 0;
    uint8_t irat_cm = 0;
    uint16_t irat_ch = 0;
    int8_t irat_carrier_rssi = 0;

    int8_t tx_power = 0;
    uint8_t pc_algorithm = 0;
    uint8_t pc_step = 0;
    int carrier_rssi = 0;  // dBm
    std::vector<TransportChannel> transport_channels;

    uint16_t drx = 0;
    uint8_t mm_status = 0;
    uint8_t gmm_status = 0;
    // Every RAB of the list, and the one set up last (its index); none
    // when the list is empty.
    std::vector<uint16_t> rab_ids;
    size_t rab = 0;
    QosCodes qos{};  // the profile of the RAB set up last

    // Reselection values of an active-set cell, whole dB.
    int Squal(const UmtsCell& cell) const { return -cell.ecio / 2 - qqualmin; }
    int Srxlev(const UmtsCell& cell) const { return -cell.rscp / 10 - qrxlevmin; }
};

class WcdmaWorld : public WorldClock {
  public:
    // `section` is merged over DefaultWcdmaScenario(); time starts now.
    explicit WcdmaWorld(const nlohmann::json& section);

    // The world `seconds` after it began. Thread-safe: the world never
    // changes, only the moment asked for.
    WcdmaState At(double seconds) const;
};

// The world's measurement in the shape of the scenario's qmi.umts section,
// which the vendor service turns into the type-3 payload.
nlohmann::json UmtsMeasurementJson(const WcdmaState& state);

}  // namespace modemsim
