#include "tools/modemsim/wcdma_log_packets.h"

#include <algorithm>

#include "tools/modemsim/wcdma_log_records.h"

namespace modemsim {

namespace {

namespace R = wcdma_record;

std::vector<uint8_t> ActiveSet(const WcdmaState& state) {
    using F = R::ActiveSet;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        size_t count = std::min(state.active_set.size(), F::kMaxCells);
        p.Write(F::kCount, int64_t(count));
        p.Write(F::kUarfcn, state.uarfcn);
        for (size_t k = 0; k < count; ++k) {
            p.Write(F::Psc(k), state.active_set[k].psc);
            p.Write(F::CellId(k), state.active_set[k].cell_id);
        }
    });
}

std::vector<uint8_t> MonitoredSet(const WcdmaState& state) {
    using F = R::MonitoredSet;
    std::vector<UmtsCarrier> carriers;
    if (!state.monitored_intra.empty()) carriers.push_back({state.uarfcn, state.monitored_intra});
    carriers.insert(carriers.end(), state.inter_freq.begin(), state.inter_freq.end());
    if (carriers.size() > F::kMaxBlocks) carriers.resize(F::kMaxBlocks);

    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(F::kBlockCount, int64_t(carriers.size()));
        for (size_t f = 0; f < carriers.size(); ++f) {
            size_t block = F::Block(f);
            size_t count = std::min(carriers[f].cells.size(), F::kMaxCells);
            p.Write(F::kBlockUarfcn.In(block), carriers[f].uarfcn);
            p.Write(F::kBlockCellCount.In(block), int64_t(count));
            for (size_t d = 0; d < count; ++d) {
                p.Write(F::CellPsc(d).In(block), carriers[f].cells[d].psc);
                p.Write(F::CellId(d).In(block), carriers[f].cells[d].cell_id);
            }
        }
    });
}

std::vector<uint8_t> CellIdentity(const WcdmaState& state) {
    using F = R::CellIdentity;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        if (!state.active_set.empty()) p.Write(F::kCellId, state.active_set[0].cell_id);
        p.Write(F::kUra, state.ura);
        p.Write(F::kNotBarred, state.barred ? 0 : 1);
    });
}

// PLMN octets of 3GPP TS 24.008: MCC2 MCC1 | MNC3 MCC3 | MNC2 MNC1, with
// 0xF for MNC3 when the MNC has two digits.
std::vector<uint8_t> Location(const WcdmaState& state) {
    int mcc1 = state.mcc / 100 % 10, mcc2 = state.mcc / 10 % 10, mcc3 = state.mcc % 10;
    int mnc1, mnc2, mnc3;
    if (state.mnc_digits == 2) {
        mnc1 = state.mnc / 10 % 10, mnc2 = state.mnc % 10, mnc3 = 0xF;
    } else {
        mnc1 = state.mnc / 100 % 10, mnc2 = state.mnc / 10 % 10, mnc3 = state.mnc % 10;
    }
    using F = R::Location;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.WriteBytes(F::kPlmn,
                     std::vector<uint8_t>{uint8_t(mcc2 << 4 | mcc1), uint8_t(mnc3 << 4 | mcc3),
                                          uint8_t(mnc2 << 4 | mnc1)});
        p.Write(F::kLac, state.lac);
        p.Write(F::kRac, state.rac);
    });
}

std::vector<uint8_t> Reselection(const WcdmaState& state) {
    using F = R::Reselection;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        for (size_t i = 0; i < std::min(state.active_set.size(), R::ActiveSet::kMaxCells); ++i) {
            p.Write(F::Srxlev(i), state.Srxlev(state.active_set[i]));
            p.Write(F::Squal(i), state.Squal(state.active_set[i]));
        }
    });
}

std::vector<uint8_t> Cqi(const WcdmaState& state) {
    using F = R::Cqi;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(F::kFormat, state.cqi_format);
        p.Write(F::kPosition, F::kSamples - 1);
        uint16_t sample = CqiSample(state);
        for (size_t k = 0; k < F::kSamples; ++k) p.Write(F::Sample(k), sample);
    });
}

std::vector<uint8_t> HsdpaRate(const WcdmaState& state) {
    using F = R::HsdpaRate;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(F::kSelector, 0);
        p.Write(F::Rate(0), state.hsdpa_rate);
    });
}

std::vector<uint8_t> TransportBler(const WcdmaState& state) {
    using F = R::TransportBler;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        size_t count = std::min(state.transport_channels.size(), F::kMaxChannels);
        p.Write(F::kCount, int64_t(count));
        for (size_t k = 0; k < count; ++k) {
            p.Write(F::ChannelId(k), state.transport_channels[k].id);
            p.Write(F::Bler(k), state.transport_channels[k].bler);
        }
    });
}

std::vector<uint8_t> HspaUeState(const WcdmaState& state) {
    using F = R::HspaUeState;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(F::kUeState, state.ue_state);
        p.Write(F::kIratCm, state.irat_cm);
        p.Write(F::kIratChannel, state.irat_ch);
        p.Write(F::kIratCarrierRssi, state.irat_carrier_rssi);
    });
}

std::vector<uint8_t> TxPower(const WcdmaState& state) {
    using F = R::TxPower;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(F::kPower, state.tx_power);
        p.Write(F::kAlgorithm, state.pc_algorithm);
        p.Write(F::kStep, state.pc_step);
    });
}

std::vector<uint8_t> CarrierRssi(const WcdmaState& state) {
    return BuildPayload(R::CarrierRssi::kSize, [&](rt::FieldWriter& p) {
        p.Write(R::CarrierRssi::kRaw, RawCarrierRssi(state.carrier_rssi));
    });
}

std::vector<uint8_t> UpdateStatus(uint8_t status) {
    return BuildPayload(R::UpdateStatus::kSize,
                        [&](rt::FieldWriter& p) { p.Write(R::UpdateStatus::kStatus, status); });
}

std::vector<uint8_t> Drx(const WcdmaState& state) {
    return BuildPayload(R::Drx::kSize,
                        [&](rt::FieldWriter& p) { p.Write(R::Drx::kValue, state.drx); });
}

std::vector<uint8_t> PdpQos(const WcdmaState& state) {
    using F = R::PdpQos;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        static_assert(std::tuple_size_v<QosCodes> == F::kCodes);
        for (size_t i = 0; i < state.qos.size(); ++i) p.Write(F::Code(i), state.qos[i]);
    });
}

std::vector<uint8_t> IratCompressedMode(const WcdmaState& state) {
    return BuildPayload(R::IratCompressedMode::kSize, [&](rt::FieldWriter& p) {
        p.Write(R::IratCompressedMode::kFlag, state.irat_cm);
    });
}

std::vector<uint8_t> Rabs(const WcdmaState& state) {
    using F = R::Rabs;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(F::kSelector, int64_t(state.rab));
        for (size_t n = 0; n < std::min(state.rab_ids.size(), F::kMaxEntries); ++n)
            p.Write(F::RabId(n), state.rab_ids[n]);
    });
}

}  // namespace

uint16_t CqiSample(const WcdmaState& state) {
    unsigned cqi = unsigned(state.cqi);
    if (state.cqi_format == 0) {
        // Bit 0 set for type A, the CQI in bits 1 to 8.
        return uint16_t((cqi & 0xFF) << 1 | (state.cqi_type == CqiType::kTypeA ? 1 : 0));
    }
    // Bits 0-1: 0 DTX, 1 type B, 2 type A, 3 DC-HSPA; the CQI from bit 2.
    switch (state.cqi_type) {
        case CqiType::kDtx:
            return 0;
        case CqiType::kTypeB:
            return uint16_t((cqi & 0x1F) << 2 | 1);
        case CqiType::kDchspa:
            return uint16_t((cqi & 0x1F) << 2 | 3);
        case CqiType::kTypeA:
            break;
    }
    return uint16_t((cqi & 0xFF) << 2 | 2);
}

int16_t RawCarrierRssi(int dbm) {
    // The inverse of (raw + 512) / 10 - 106 for whole dBm.
    return int16_t((dbm + 106) * 10 - 512);
}

std::vector<LogPayload> WcdmaLogPayloads(const WcdmaState& state) {
    using U = R::UpdateStatus;
    return {
        {R::ActiveSet::kCode, ActiveSet(state)},
        {R::MonitoredSet::kCode, MonitoredSet(state)},
        {R::CellIdentity::kCode, CellIdentity(state)},
        {R::Location::kCode, Location(state)},
        {R::Reselection::kCode, Reselection(state)},
        {R::Cqi::kCode, Cqi(state)},
        {R::HsdpaRate::kCode, HsdpaRate(state)},
        {R::TransportBler::kCode, TransportBler(state)},
        {R::HspaUeState::kCode, HspaUeState(state)},
        {R::TxPower::kCode, TxPower(state)},
        {R::CarrierRssi::kCode, CarrierRssi(state)},
        {U::kMmCode, UpdateStatus(state.mm_status)},
        {U::kGmmCode, UpdateStatus(state.gmm_status)},
        {R::Drx::kCode, Drx(state)},
        {R::PdpQos::kCode, PdpQos(state)},
        {R::IratCompressedMode::kCode, IratCompressedMode(state)},
        {R::Rabs::kCode, Rabs(state)},
    };
}

}  // namespace modemsim
