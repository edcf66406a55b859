#include "tools/modemsim/wcdma_world.h"

#include <algorithm>
#include <cmath>

#include "tools/modemsim/world_support.h"

namespace modemsim {

namespace {

CqiType CqiTypeFrom(const std::string& text) {
    if (text == "B") return CqiType::kTypeB;
    if (text == "DTX") return CqiType::kDtx;
    if (text == "DCHSPA") return CqiType::kDchspa;
    return CqiType::kTypeA;
}

// Series numbers for Drift::Of, so no two kinds share a phase.
constexpr int kIntraSeries = 0;
constexpr int kInterSeries = 20;
constexpr int kGsmSeries = 40;
constexpr int kDchSeries = 60;

UmtsCell DriftedCell(const nlohmann::json& cell, const nlohmann::json& drift, const Drift& sine,
                     int series) {
    UmtsCell out;
    out.psc = static_cast<uint16_t>(IntOr(cell, "psc", 0));
    out.cell_id = static_cast<uint32_t>(IntOr(cell, "cell_id", 0));
    out.ecio = std::max(0, IntOr(cell, "ecio", 0) + sine.Of(IntOr(drift, "ecio", 0), series));
    out.rscp = std::max(0, IntOr(cell, "rscp", 0) + sine.Of(IntOr(drift, "rscp", 0), series + 7));
    return out;
}

uint8_t Code(const nlohmann::json& object, const char* key) {
    return static_cast<uint8_t>(std::clamp(IntOr(object, key, 0), 0, 255));
}

// The mobility-management results and the radio access bearers at `seconds`.
void PacketDataAt(const nlohmann::json& s, double seconds, WcdmaState* out) {
    const nlohmann::json& mobility = Section(s, "mobility");
    out->drx = static_cast<uint16_t>(std::clamp(IntOr(mobility, "drx", 0), 0, 0xFFFF));
    out->mm_status = Code(mobility, "mm_status");
    out->gmm_status = Code(mobility, "gmm_status");
    const int update_period = IntOr(mobility, "update_period_ms", 0);
    if (update_period > 0) {
        const double into = std::fmod(seconds * 1000, update_period);
        if (into < IntOr(mobility, "update_ms", 0)) out->mm_status = out->gmm_status = 1;
    }

    const nlohmann::json& bearers = Section(s, "bearers");
    const nlohmann::json& rabs = List(bearers, "rabs");
    if (rabs.empty()) return;
    const int rab_period = std::max(1, IntOr(bearers, "rab_period_ms", 20000));
    out->rab = static_cast<size_t>(seconds * 1000 / rab_period) % rabs.size();
    for (const nlohmann::json& rab : rabs)
        out->rab_ids.push_back(
            static_cast<uint16_t>(std::clamp(IntOr(rab, "rab_id", 0), 0, 0xFFFF)));
    const nlohmann::json& qos = Section(rabs[out->rab], "qos");
    for (size_t i = 0; i < kQosCodeNames.size(); ++i) out->qos[i] = Code(qos, kQosCodeNames[i]);
}

}  // namespace

nlohmann::json DefaultWcdmaScenario() {
    // A phone in CELL_DCH on carrier 10700 with four cells around it, two
    // of them in the active set; two other carriers and two GSM cells. It
    // updates its location every 30 s, and every 20 s sets up a new RAB:
    // an interactive one (best effort, up to 8640 kbps down), then a
    // streaming one (1024 kbps down, 576 kbps guaranteed, 250 ms delay).
    return nlohmann::json::parse(R"json({
      "enabled": true,
      "period_ms": 1000,
      "handover_period_ms": 6000,
      "drift_period_ms": 20000,
      "uarfcn": 10700,
      "active_set_size": 2,
      "cells": [
        {"psc": 100, "cell_id": 45123001, "ecio": 10, "rscp": 900},
        {"psc": 200, "cell_id": 45123002, "ecio": 16, "rscp": 950},
        {"psc": 300, "cell_id": 45123003, "ecio": 20, "rscp": 980},
        {"psc": 400, "cell_id": 45123004, "ecio": 24, "rscp": 1010}
      ],
      "inter_freq": [
        {"uarfcn": 10563, "cells": [{"psc": 17, "cell_id": 45124017, "ecio": 18, "rscp": 1010},
                                    {"psc": 18, "cell_id": 45124018, "ecio": 22, "rscp": 1040}]},
        {"uarfcn": 10588, "cells": [{"psc": 25, "cell_id": 45125025, "ecio": 26, "rscp": 1060}]}
      ],
      "gsm": [{"arfcn": 128, "bsic": 33, "rssi": -880}, {"arfcn": 130, "bsic": 12, "rssi": -930}],
      "identity": {"mcc": 310, "mnc": 410, "lac": 11023, "rac": 7, "ura": 3, "barred": false},
      "reselection": {"qqualmin": -24, "qrxlevmin": -115},
      "hspa": {"cqi_format": 1, "cqi_type": "A", "cqi": 22, "rate": 4200, "ue_state": 2,
               "irat_cm": 0},
      "dch": {"tx_power": -5, "pc_algorithm": 1, "pc_step": 1, "carrier_rssi": -72,
              "transport_channels": [{"id": 5, "bler": 0}, {"id": 6, "bler": 12}]},
      "drift": {"ecio": 4, "rscp": 60, "gsm_rssi": 40, "carrier_rssi": 4, "tx_power": 6,
                "cqi": 4, "rate": 800, "bler": 3},
      "mobility": {"drx": 7, "mm_status": 0, "gmm_status": 0, "update_period_ms": 30000,
                   "update_ms": 3000},
      "bearers": {"rab_period_ms": 20000, "rabs": [
        {"rab_id": 5, "qos": {"connection_id": 5, "delay_class": 4, "reliability_class": 3,
          "peak_throughput": 9, "precedence": 2, "mean_throughput": 31, "traffic_class": 3,
          "delivery_order": 2, "erroneous_sdu_delivery": 3, "max_sdu_size": 153,
          "max_bit_rate_ul": 104, "max_bit_rate_dl": 254, "residual_ber": 7,
          "sdu_error_ratio": 4, "transfer_delay": 0, "traffic_handling_priority": 1,
          "guaranteed_bit_rate_ul": 0, "guaranteed_bit_rate_dl": 0}},
        {"rab_id": 6, "qos": {"connection_id": 6, "delay_class": 4, "reliability_class": 3,
          "peak_throughput": 6, "precedence": 2, "mean_throughput": 31, "traffic_class": 2,
          "delivery_order": 2, "erroneous_sdu_delivery": 3, "max_sdu_size": 150,
          "max_bit_rate_ul": 64, "max_bit_rate_dl": 135, "residual_ber": 6,
          "sdu_error_ratio": 3, "transfer_delay": 17, "traffic_handling_priority": 0,
          "guaranteed_bit_rate_ul": 32, "guaranteed_bit_rate_dl": 128}}
      ]}
    })json");
}

WcdmaWorld::WcdmaWorld(const nlohmann::json& section)
    : WorldClock(DefaultWcdmaScenario(), section, 6000) {}

WcdmaState WcdmaWorld::At(double seconds) const {
    seconds = std::max(0.0, seconds);
    const nlohmann::json& s = settings_;
    const nlohmann::json& drift = Section(s, "drift");
    Drift sine(seconds, IntOr(s, "drift_period_ms", 20000));
    WcdmaState out;
    out.uarfcn = static_cast<uint16_t>(IntOr(s, "uarfcn", 0));

    // The serving carrier's cells: a window of them is the active set, and
    // the window moves one cell per handover period.
    const nlohmann::json& cells = List(s, "cells");
    size_t count = cells.size();
    size_t active = std::min<size_t>(std::clamp(IntOr(s, "active_set_size", 1), 1, 6), count);
    size_t step = static_cast<size_t>(seconds * 1000 / handover_period_ms_);
    for (size_t i = 0; i < count; ++i) {
        size_t index = (step + i) % count;
        UmtsCell cell = DriftedCell(cells[index], drift, sine, kIntraSeries + int(index));
        (i < active ? out.active_set : out.monitored_intra).push_back(cell);
    }

    const nlohmann::json& inter = List(s, "inter_freq");
    for (size_t f = 0; f < std::min<size_t>(inter.size(), 2); ++f) {
        UmtsCarrier carrier;
        carrier.uarfcn = static_cast<uint16_t>(IntOr(inter[f], "uarfcn", 0));
        const nlohmann::json& list = List(inter[f], "cells");
        for (size_t c = 0; c < list.size(); ++c)
            carrier.cells.push_back(
                DriftedCell(list[c], drift, sine, kInterSeries + int(8 * f + c)));
        out.inter_freq.push_back(carrier);
    }

    const nlohmann::json& gsm = List(s, "gsm");
    for (size_t g = 0; g < gsm.size(); ++g) {
        GsmCell cell;
        cell.arfcn = static_cast<uint16_t>(IntOr(gsm[g], "arfcn", 0));
        cell.bsic = static_cast<uint16_t>(IntOr(gsm[g], "bsic", 0));
        cell.rssi =
            IntOr(gsm[g], "rssi", 0) + sine.Of(IntOr(drift, "gsm_rssi", 0), kGsmSeries + int(g));
        out.gsm.push_back(cell);
    }

    const nlohmann::json& identity = Section(s, "identity");
    out.mcc = IntOr(identity, "mcc", 0);
    out.mnc = IntOr(identity, "mnc", 0);
    out.mnc_digits = IntOr(identity, "mnc_digits", out.mnc >= 100 ? 3 : 2) == 2 ? 2 : 3;
    out.lac = static_cast<uint16_t>(IntOr(identity, "lac", 0));
    out.rac = static_cast<uint8_t>(IntOr(identity, "rac", 0));
    out.ura = static_cast<uint16_t>(IntOr(identity, "ura", 0));
    out.barred = BoolOr(identity, "barred", false);

    const nlohmann::json& reselection = Section(s, "reselection");
    out.qqualmin = IntOr(reselection, "qqualmin", -24);
    out.qrxlevmin = IntOr(reselection, "qrxlevmin", -115);

    const nlohmann::json& hspa = Section(s, "hspa");
    out.cqi_format = IntOr(hspa, "cqi_format", 1);
    out.cqi_type = CqiTypeFrom(StringOr(hspa, "cqi_type", "A"));
    out.cqi = std::clamp(IntOr(hspa, "cqi", 0) + sine.Of(IntOr(drift, "cqi", 0), kDchSeries), 0,
                         out.cqi_format == 0 ? 255 : 30);
    out.hsdpa_rate = static_cast<uint16_t>(std::clamp(
        IntOr(hspa, "rate", 0) + sine.Of(IntOr(drift, "rate", 0), kDchSeries + 1), 0, 0xFFFF));
    out.ue_state = static_cast<uint8_t>(IntOr(hspa, "ue_state", 0));
    out.irat_cm = static_cast<uint8_t>(IntOr(hspa, "irat_cm", 0));
    if (!out.gsm.empty()) {
        out.irat_ch = out.gsm[0].arfcn;
        out.irat_carrier_rssi = static_cast<int8_t>(std::clamp(out.gsm[0].rssi / 10, -128, 127));
    }

    const nlohmann::json& dch = Section(s, "dch");
    out.tx_power = static_cast<int8_t>(
        std::clamp(IntOr(dch, "tx_power", 0) + sine.Of(IntOr(drift, "tx_power", 0), kDchSeries + 2),
                   -128, 127));
    out.pc_algorithm = static_cast<uint8_t>(IntOr(dch, "pc_algorithm", 1));
    out.pc_step = static_cast<uint8_t>(IntOr(dch, "pc_step", 1));
    out.carrier_rssi =
        IntOr(dch, "carrier_rssi", 0) + sine.Of(IntOr(drift, "carrier_rssi", 0), kDchSeries + 3);
    const nlohmann::json& channels = List(dch, "transport_channels");
    for (size_t k = 0; k < channels.size(); ++k) {
        int bler = IntOr(channels[k], "bler", 0) +
                   sine.Of(IntOr(drift, "bler", 0), kDchSeries + 4 + int(k));
        out.transport_channels.push_back({static_cast<uint8_t>(IntOr(channels[k], "id", 0)),
                                          static_cast<uint32_t>(std::max(0, bler))});
    }

    PacketDataAt(s, seconds, &out);
    return out;
}

nlohmann::json UmtsMeasurementJson(const WcdmaState& state) {
    auto cells = [](const std::vector<UmtsCell>& list) {
        nlohmann::json out = nlohmann::json::array();
        for (const UmtsCell& cell : list)
            out.push_back({{"psc", cell.psc}, {"ecio", cell.ecio}, {"rscp", cell.rscp}});
        return out;
    };
    nlohmann::json inter = nlohmann::json::array();
    for (const UmtsCarrier& carrier : state.inter_freq)
        inter.push_back({{"uarfcn", carrier.uarfcn}, {"cells", cells(carrier.cells)}});
    nlohmann::json gsm = nlohmann::json::array();
    for (const GsmCell& cell : state.gsm)
        gsm.push_back({{"arfcn", cell.arfcn}, {"bsic", cell.bsic}, {"rssi", cell.rssi}});
    return {
        {"present", 1},
        {"valid", 1},
        {"serving_uarfcn", state.uarfcn},
        {"intra_freq", cells(state.monitored_intra)},
        {"active_set", cells(state.active_set)},
        {"inter_freq", inter},
        {"gsm", gsm},
    };
}

}  // namespace modemsim
