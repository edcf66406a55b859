#include "tools/modemsim/lte_world.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "tools/modemsim/world_support.h"

namespace modemsim {

namespace {

// Series numbers for Drift::Of, so no two kinds share a phase.
constexpr int kServingSeries = 0;
constexpr int kWcdmaSeries = 10;
constexpr int kCdmaSeries = 50;
constexpr int kGeranSeries = 60;

constexpr size_t kMaxWcdmaNeighbours = 31;
constexpr size_t kCdmaNeighbours = 3;
constexpr size_t kMaxGeranGroups = 13;
constexpr size_t kMaxGeranCells = 8;
constexpr size_t kMaxBearers = 15;

int16_t ClampS16(int value) {
    return static_cast<int16_t>(std::clamp(value, -32768, 32767));
}

uint8_t IdentityType(const nlohmann::json& identity) {
    int number = IntOr(identity, "type", -1);
    if (number >= 0) return static_cast<uint8_t>(number);
    return StringOr(identity, "type", "guti") == "imsi" ? uint8_t(UeIdentityType::kImsi)
                                                        : uint8_t(UeIdentityType::kGuti);
}

RlcBearer BearerFrom(const nlohmann::json& entry) {
    RlcBearer bearer;
    bearer.cfg_idx = static_cast<uint8_t>(IntOr(entry, "cfg_idx", 0));
    bearer.rb_id = static_cast<uint8_t>(IntOr(entry, "rb_id", bearer.cfg_idx));
    bearer.kind = StringOr(entry, "kind", "drb") == "srb" ? RbKind::kSrb : RbKind::kDrb;
    bearer.mode = StringOr(entry, "mode", "AM") == "UM" ? RlcMode::kUm : RlcMode::kAm;
    return bearer;
}

// The counters of a bearer that has carried `pdus` data PDUs in one
// direction, through `resets` re-establishments. Each is a fixed fraction
// of the PDUs, so every counter only grows; the acknowledgement counters
// (status, control PDUs, NACKs, polls, retransmissions) stay 0 in UM.
RlcDlCounters DlCounters(uint64_t pdus, unsigned resets, RlcMode mode) {
    bool am = mode == RlcMode::kAm;
    auto part = [&](uint64_t divisor) { return static_cast<uint32_t>(pdus / divisor); };
    RlcDlCounters c;
    c.num_rst = resets;
    c.num_data_pdu = static_cast<uint32_t>(pdus);
    c.num_status_rxed = am ? part(40) : 0;
    c.num_invalid_pdu = part(5000);
    c.num_retx_pdu = am ? part(100) : 0;
    c.num_dup_pdu = part(400);
    c.num_dropped_pdu = part(1000);
    c.num_dropped_pdu_fc = part(20000);
    c.num_sdu = static_cast<uint32_t>(pdus - pdus / 10);
    c.num_nonseq_sdu = part(250);
    c.num_ctrl_pdu = am ? part(20) : 0;
    c.num_comp_nack = am ? part(300) : 0;
    c.num_segm_nack = am ? part(900) : 0;
    c.num_t_reord_exp = part(150);
    return c;
}

RlcUlCounters UlCounters(uint64_t pdus, unsigned resets, RlcMode mode) {
    bool am = mode == RlcMode::kAm;
    auto part = [&](uint64_t divisor) { return static_cast<uint32_t>(pdus / divisor); };
    RlcUlCounters c;
    c.num_rst = resets;
    c.num_data_pdu = static_cast<uint32_t>(pdus);
    c.num_sdu = static_cast<uint32_t>(pdus - pdus / 8);
    c.num_ctrl_pdu_tx = am ? part(20) : 0;
    c.num_retx_pdu = am ? part(80) : 0;
    c.num_ctrl_pdu_rx = am ? part(25) : 0;
    c.num_comp_nack = am ? part(250) : 0;
    c.num_segm_nack = am ? part(700) : 0;
    c.num_invalid_ctrl_pdu_rx = am ? part(6000) : 0;
    c.num_poll = am ? part(16) : 0;
    c.num_t_poll_retx_expiry = am ? part(1200) : 0;
    return c;
}

uint64_t PdusAt(const nlohmann::json& bearer, const char* rate_key, double seconds) {
    double rate = std::max(0, IntOr(bearer, rate_key, 0));
    return static_cast<uint64_t>(std::floor(rate * seconds));
}

}  // namespace

nlohmann::json DefaultLteScenario() {
    // A phone attached on band 13 with a default and a dedicated bearer,
    // handing over between two band-13 cells and a band-4 cell; WCDMA,
    // CDMA and GSM cells around it.
    return nlohmann::json::parse(R"json({
      "enabled": true,
      "period_ms": 1000,
      "handover_period_ms": 15000,
      "drift_period_ms": 20000,
      "mcc": 311, "mnc": 480,
      "dl_earfcn": 5230, "ul_earfcn": 23230,
      "dl_bandwidth_rb": 50, "ul_bandwidth_rb": 50,
      "band": 13, "tac": 12801,
      "cells": [
        {"pci": 87, "cell_id": 141363983, "rsrp": 1360, "rsrq": 320},
        {"pci": 212, "cell_id": 141363984, "rsrp": 1296, "rsrq": 288},
        {"pci": 405, "cell_id": 141364242, "rsrp": 1440, "rsrq": 336,
         "dl_earfcn": 2175, "ul_earfcn": 20175, "dl_bandwidth_rb": 100, "ul_bandwidth_rb": 100,
         "band": 4, "tac": 12802}
      ],
      "rssi": -65,
      "ue_identity": {"type": "guti", "valid": 1, "mmegi": 32769, "mmec": 21,
                      "m_tmsi": 3254781953},
      "wcdma": {"uarfcn": 10700, "rscp": [-95, -101, -104]},
      "cdma": [{"pilot_pn": 120, "rssi": -80, "ecio": -9},
               {"pilot_pn": 204, "rssi": -87, "ecio": -13},
               {"pilot_pn": 312, "rssi": -93, "ecio": -16}],
      "geran": [{"cells": [{"bsic": 12, "rssi": -955}, {"bsic": 40, "rssi": -701}]},
                {"cells": [{"bsic": 7, "rssi": -1020}]}],
      "rlc": {"released": 0,
              "bearers": [
                {"cfg_idx": 1, "rb_id": 1, "kind": "srb", "mode": "AM", "dl_rate": 3, "ul_rate": 2},
                {"cfg_idx": 2, "rb_id": 2, "kind": "srb", "mode": "AM", "dl_rate": 1, "ul_rate": 1},
                {"cfg_idx": 3, "rb_id": 3, "kind": "drb", "mode": "AM", "dl_rate": 900,
                 "ul_rate": 150},
                {"cfg_idx": 4, "rb_id": 4, "kind": "drb", "mode": "UM", "dl_rate": 50,
                 "ul_rate": 50}
              ]},
      "drift": {"rsrp": 48, "rsrq": 24, "rssi": 4, "rscp": 4, "cdma": 3, "geran_rssi": 40}
    })json");
}

std::vector<uint8_t> LteState::PlmnOctets() const {
    int mcc1 = mcc / 100 % 10, mcc2 = mcc / 10 % 10, mcc3 = mcc % 10;
    int mnc1, mnc2, mnc3;
    if (mnc_digits == 2) {
        mnc1 = mnc / 10 % 10, mnc2 = mnc % 10, mnc3 = 0xF;
    } else {
        mnc1 = mnc / 100 % 10, mnc2 = mnc / 10 % 10, mnc3 = mnc % 10;
    }
    return {uint8_t(mcc2 << 4 | mcc1), uint8_t(mnc3 << 4 | mcc3), uint8_t(mnc2 << 4 | mnc1)};
}

LteWorld::LteWorld(const nlohmann::json& section)
    : WorldClock(DefaultLteScenario(), section, 15000) {}

LteState LteWorld::At(double seconds) const {
    seconds = std::max(0.0, seconds);
    const nlohmann::json& s = settings_;
    const nlohmann::json& drift = Section(s, "drift");
    Drift sine(seconds, IntOr(s, "drift_period_ms", 20000));
    LteState out;

    // The serving cell: one of the list per handover period; a cell's own
    // carrier values stand over the section's.
    out.handovers = static_cast<unsigned>(seconds * 1000 / handover_period_ms_);
    const nlohmann::json& cells = List(s, "cells");
    const nlohmann::json& cell =
        cells.empty() ? nlohmann::json::object() : cells[out.handovers % cells.size()];
    auto carrier = [&](const char* key) { return IntOr(cell, key, IntOr(s, key, 0)); };
    out.pci = static_cast<uint16_t>(IntOr(cell, "pci", 0));
    out.cell_id = static_cast<uint32_t>(Int64Or(cell, "cell_id", 0));
    out.dl_earfcn = static_cast<uint32_t>(carrier("dl_earfcn"));
    out.ul_earfcn = static_cast<uint32_t>(carrier("ul_earfcn"));
    out.dl_bandwidth_rb = static_cast<uint8_t>(carrier("dl_bandwidth_rb"));
    out.ul_bandwidth_rb = static_cast<uint8_t>(carrier("ul_bandwidth_rb"));
    out.band = static_cast<uint32_t>(carrier("band"));
    out.tac = static_cast<uint16_t>(carrier("tac"));
    out.mcc = IntOr(s, "mcc", 0);
    out.mnc = IntOr(s, "mnc", 0);
    out.mnc_digits = IntOr(s, "mnc_digits", out.mnc >= 100 ? 3 : 2) == 2 ? 2 : 3;

    out.rsrp = ClampS16(IntOr(cell, "rsrp", 0) + sine.Of(IntOr(drift, "rsrp", 0), kServingSeries));
    out.rsrq =
        ClampS16(IntOr(cell, "rsrq", 0) + sine.Of(IntOr(drift, "rsrq", 0), kServingSeries + 1));
    out.rssi_dbm = std::clamp(
        IntOr(s, "rssi", -110) + sine.Of(IntOr(drift, "rssi", 0), kServingSeries + 2), -110, -10);

    const nlohmann::json& wcdma = Section(s, "wcdma");
    out.wcdma_uarfcn = static_cast<uint16_t>(IntOr(wcdma, "uarfcn", 0));
    const nlohmann::json& rscps = List(wcdma, "rscp");
    for (size_t i = 0; i < std::min(rscps.size(), kMaxWcdmaNeighbours); ++i) {
        int base = IntOf(rscps[i], 0);
        out.wcdma_rscp.push_back(
            ClampS16(base + sine.Of(IntOr(drift, "rscp", 0), kWcdmaSeries + int(i))));
    }

    const nlohmann::json& cdma = List(s, "cdma");
    for (size_t k = 0; k < std::min(cdma.size(), kCdmaNeighbours); ++k) {
        int amplitude = IntOr(drift, "cdma", 0);
        CdmaNeighbour n;
        n.pilot_pn = static_cast<uint16_t>(IntOr(cdma[k], "pilot_pn", 0));
        n.rssi = ClampS16(IntOr(cdma[k], "rssi", 0) + sine.Of(amplitude, kCdmaSeries + 2 * int(k)));
        n.ecio =
            ClampS16(IntOr(cdma[k], "ecio", 0) + sine.Of(amplitude, kCdmaSeries + 2 * int(k) + 1));
        out.cdma.push_back(n);
    }

    const nlohmann::json& geran = List(s, "geran");
    for (size_t g = 0; g < std::min(geran.size(), kMaxGeranGroups); ++g) {
        GeranGroup group;
        const nlohmann::json& list = List(geran[g], "cells");
        for (size_t e = 0; e < std::min(list.size(), kMaxGeranCells); ++e) {
            GeranCell c;
            c.present = IntOr(list[e], "present", 1) != 0;
            c.bsic = static_cast<uint8_t>(IntOr(list[e], "bsic", 0));
            c.rssi = IntOr(list[e], "rssi", 0) +
                     sine.Of(IntOr(drift, "geran_rssi", 0), kGeranSeries + int(8 * g + e));
            group.cells.push_back(c);
        }
        out.geran.push_back(group);
    }

    const nlohmann::json& identity = Section(s, "ue_identity");
    out.identity_valid = IntOr(identity, "valid", 1) == 1;
    out.identity_type = IdentityType(identity);
    out.mmegi = static_cast<uint16_t>(IntOr(identity, "mmegi", 0));
    out.mmec = static_cast<uint8_t>(IntOr(identity, "mmec", 0));
    out.m_tmsi = static_cast<uint32_t>(Int64Or(identity, "m_tmsi", 0));

    // Every handover re-establishes the bearers: one reset each.
    const nlohmann::json& rlc = Section(s, "rlc");
    out.rlc_released = static_cast<uint8_t>(std::clamp(IntOr(rlc, "released", 0), 0, 255));
    const nlohmann::json& bearers = List(rlc, "bearers");
    for (size_t b = 0; b < std::min(bearers.size(), kMaxBearers); ++b) {
        RlcBearer bearer = BearerFrom(bearers[b]);
        out.bearers.push_back(bearer);
        out.rlc_dl.push_back({bearer, DlCounters(PdusAt(bearers[b], "dl_rate", seconds),
                                                 out.handovers, bearer.mode)});
        out.rlc_ul.push_back({bearer, UlCounters(PdusAt(bearers[b], "ul_rate", seconds),
                                                 out.handovers, bearer.mode)});
    }
    return out;
}

nlohmann::json LteGeranMeasurementJson(const LteState& state) {
    nlohmann::json groups = nlohmann::json::array();
    for (const GeranGroup& group : state.geran) {
        nlohmann::json cells = nlohmann::json::array();
        for (const GeranCell& cell : group.cells)
            cells.push_back(
                {{"present", cell.present ? 1 : 0}, {"bsic", cell.bsic}, {"rssi", cell.rssi}});
        groups.push_back({{"cells", cells}});
    }
    return {{"present", 1}, {"valid", 1}, {"groups", groups}};
}

}  // namespace modemsim
