#include "tools/modemsim/wcdma_log_packets.h"

#include <algorithm>

#include "platform/dmux/log_layouts.h"

namespace modemsim {

namespace {

using Payload = PayloadWriter;

// Payload sizes: what the daemon keeps of each code, less the 12-byte header.
constexpr size_t kActiveSetSize = 75;
constexpr size_t kMonitoredSetSize = 682;
constexpr size_t kCellIdentitySize = 16;
constexpr size_t kLocationSize = 9;
constexpr size_t kReselectionSize = 546;
constexpr size_t kCqiSize = 504;
constexpr size_t kHsdpaRateSize = 157;
constexpr size_t kTransportBlerSize = 75;
constexpr size_t kHspaUeStateSize = 378;
constexpr size_t kTxPowerSize = 17;
constexpr size_t kCarrierRssiSize = 502;

constexpr size_t kMaxActiveCells = 6;
constexpr size_t kMaxCarriers = 3;
constexpr size_t kMaxCarrierCells = 32;
constexpr size_t kCqiSamples = 250;
constexpr size_t kMaxTransportChannels = 8;

std::vector<uint8_t> ActiveSet(const WcdmaState& state) {
    Payload p(kActiveSetSize);
    size_t count = std::min(state.active_set.size(), kMaxActiveCells);
    p.U8(0, unsigned(count));
    p.U16(1, state.uarfcn);
    for (size_t k = 0; k < count; ++k) {
        p.U16(3 + 12 * k + 1, state.active_set[k].psc);
        p.U32(3 + 12 * k + 8, state.active_set[k].cell_id);
    }
    return p.Take();
}

std::vector<uint8_t> MonitoredSet(const WcdmaState& state) {
    std::vector<UmtsCarrier> carriers;
    if (!state.monitored_intra.empty()) carriers.push_back({state.uarfcn, state.monitored_intra});
    carriers.insert(carriers.end(), state.inter_freq.begin(), state.inter_freq.end());
    if (carriers.size() > kMaxCarriers) carriers.resize(kMaxCarriers);

    Payload p(kMonitoredSetSize);
    p.U8(0, unsigned(carriers.size()));
    for (size_t f = 0; f < carriers.size(); ++f) {
        size_t block = 1 + 227 * f;
        size_t count = std::min(carriers[f].cells.size(), kMaxCarrierCells);
        p.U16(block, carriers[f].uarfcn);
        p.U8(block + 2, unsigned(count));
        for (size_t d = 0; d < count; ++d) {
            p.U16(block + 3 + 7 * d, carriers[f].cells[d].psc);
            p.U32(block + 3 + 7 * d + 3, carriers[f].cells[d].cell_id);
        }
    }
    return p.Take();
}

std::vector<uint8_t> CellIdentity(const WcdmaState& state) {
    Payload p(kCellIdentitySize);
    if (!state.active_set.empty()) p.U32(8, state.active_set[0].cell_id);
    p.U16(12, state.ura);
    p.U8(14, state.barred ? 0 : 1);
    return p.Take();
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
    Payload p(kLocationSize);
    p.U8(2, unsigned(mcc2 << 4 | mcc1));
    p.U8(3, unsigned(mnc3 << 4 | mcc3));
    p.U8(4, unsigned(mnc2 << 4 | mnc1));
    p.U16(5, state.lac);
    p.U8(7, state.rac);
    return p.Take();
}

std::vector<uint8_t> Reselection(const WcdmaState& state) {
    Payload p(kReselectionSize);
    for (size_t i = 0; i < std::min(state.active_set.size(), kMaxActiveCells); ++i) {
        p.U16(7 + 10 * i, uint16_t(state.Srxlev(state.active_set[i])));
        p.U16(10 + 10 * i, uint16_t(state.Squal(state.active_set[i])));
    }
    return p.Take();
}

std::vector<uint8_t> Cqi(const WcdmaState& state) {
    Payload p(kCqiSize);
    p.U8(0, unsigned(state.cqi_format));
    p.U8(1, kCqiSamples - 1);
    uint16_t sample = CqiSample(state);
    for (size_t k = 0; k < kCqiSamples; ++k) p.U16(4 + 2 * k, sample);
    return p.Take();
}

std::vector<uint8_t> HsdpaRate(const WcdmaState& state) {
    Payload p(kHsdpaRateSize);
    p.U8(0, 0);
    p.U16(1 + 13, state.hsdpa_rate);
    return p.Take();
}

std::vector<uint8_t> TransportBler(const WcdmaState& state) {
    Payload p(kTransportBlerSize);
    size_t count = std::min(state.transport_channels.size(), kMaxTransportChannels);
    p.U8(0, unsigned(count));
    for (size_t k = 0; k < count; ++k) {
        p.U8(3 + 9 * k, state.transport_channels[k].id);
        p.U32(3 + 9 * k + 5, state.transport_channels[k].bler);
    }
    return p.Take();
}

std::vector<uint8_t> HspaUeState(const WcdmaState& state) {
    Payload p(kHspaUeStateSize);
    p.U8(0, state.ue_state);
    p.U8(1, state.irat_cm);
    p.U16(2, state.irat_ch);
    p.U8(4, uint8_t(state.irat_carrier_rssi));
    return p.Take();
}

std::vector<uint8_t> TxPower(const WcdmaState& state) {
    Payload p(kTxPowerSize);
    p.U8(0, uint8_t(state.tx_power));
    p.U8(4, state.pc_algorithm);
    p.U8(5, state.pc_step);
    return p.Take();
}

std::vector<uint8_t> CarrierRssi(const WcdmaState& state) {
    Payload p(kCarrierRssiSize);
    p.U16(2, uint16_t(RawCarrierRssi(state.carrier_rssi)));
    return p.Take();
}

// The codes the umtsopinfo and bearer reports read, written at their
// layouts' fields.
namespace L = log_layout;

template <class Layout>
PayloadWriter FixedPayload() {
    return PayloadWriter(Layout::kSize - kLogHeaderSize);
}

template <class Layout>
std::vector<uint8_t> UpdateStatus(uint8_t status) {
    PayloadWriter p = FixedPayload<Layout>();
    p.Set(Layout::kStatus, status);
    return p.Take();
}

std::vector<uint8_t> Drx(const WcdmaState& state) {
    PayloadWriter p = FixedPayload<L::Drx>();
    p.Set(L::Drx::kValue, state.drx);
    return p.Take();
}

std::vector<uint8_t> PdpQos(const WcdmaState& state) {
    PayloadWriter p = FixedPayload<L::PdpQos>();
    static_assert(std::tuple_size_v<QosCodes> == L::PdpQos::kCodeCount);
    for (size_t i = 0; i < state.qos.size(); ++i) p.Set(L::PdpQos::CodeAt(i), state.qos[i]);
    return p.Take();
}

std::vector<uint8_t> IratCompressedMode(const WcdmaState& state) {
    PayloadWriter p = FixedPayload<L::IratCompressedMode>();
    p.Set(L::IratCompressedMode::kFlag, state.irat_cm);
    return p.Take();
}

std::vector<uint8_t> RabIds(const WcdmaState& state) {
    PayloadWriter p = FixedPayload<L::RabId>();
    p.Set(L::RabId::kSelector, int64_t(state.rab));
    for (size_t n = 0; n < std::min(state.rab_ids.size(), L::RabId::kMaxEntries); ++n)
        p.Set(L::RabId::EntryRabId(n), state.rab_ids[n]);
    return p.Take();
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
    return {
        {0x4110, ActiveSet(state)},
        {0x4111, MonitoredSet(state)},
        {0x4127, CellIdentity(state)},
        {0x7135, Location(state)},
        {0x4005, Reselection(state)},
        {0x421C, Cqi(state)},
        {0x4138, HsdpaRate(state)},
        {0x4116, TransportBler(state)},
        {0x4156, HspaUeState(state)},
        {0x410C, TxPower(state)},
        {0x4165, CarrierRssi(state)},
        {L::MmUpdateStatus::kCode, UpdateStatus<L::MmUpdateStatus>(state.mm_status)},
        {L::GmmUpdateStatus::kCode, UpdateStatus<L::GmmUpdateStatus>(state.gmm_status)},
        {L::Drx::kCode, Drx(state)},
        {L::PdpQos::kCode, PdpQos(state)},
        {L::IratCompressedMode::kCode, IratCompressedMode(state)},
        {L::RabId::kCode, RabIds(state)},
    };
}

}  // namespace modemsim
