#include "tools/modemsim/lte_log_packets.h"

#include <algorithm>

#include "diaglog/log_layouts.h"

namespace modemsim {

namespace {

namespace L = log_layout;

// What the daemon keeps of a fixed-size code, less the log header.
template <class Layout>
PayloadWriter FixedPayload() {
    return PayloadWriter(Layout::kSize - kLogHeaderSize);
}

// Versions of the packets whose layout the daemon reads.
constexpr uint8_t kServingCellVersion = 2;
constexpr uint8_t kServingRssiVersion = 3;
// Record byte 33 of 0xB0C2: how many digits the MNC has.
constexpr rt::Field<uint8_t> kMncDigits{33};

std::vector<uint8_t> ServingCell(const LteState& state) {
    using F = L::LteServingCell;
    PayloadWriter p = FixedPayload<F>();
    p.U8(0, kServingCellVersion);
    p.Set(F::kPci, state.pci);
    p.Set(F::kDlEarfcn, state.dl_earfcn);
    p.Set(F::kUlEarfcn, state.ul_earfcn);
    p.Set(F::kDlBandwidthRb, state.dl_bandwidth_rb);
    p.Set(F::kUlBandwidthRb, state.ul_bandwidth_rb);
    p.Set(F::kCellId, state.cell_id);
    p.Set(F::kTac, state.tac);
    p.Set(F::kBand, state.band);
    p.Set(F::kMcc, state.mcc);
    p.Set(kMncDigits, state.mnc_digits);
    p.Set(F::kMnc, state.mnc);
    return p.Take();
}

std::vector<uint8_t> ServingMeasurements(const LteState& state) {
    using F = L::LteServingMeasurements;
    PayloadWriter p = FixedPayload<F>();
    p.Set(F::kEarfcn, state.dl_earfcn);
    p.Set(F::kPci, state.pci);
    p.Set(F::kRawRsrp, state.rsrp);
    p.Set(F::kRawRsrq, state.rsrq);
    return p.Take();
}

std::vector<uint8_t> ServingRssi(const LteState& state) {
    using F = L::LteServingRssi;
    PayloadWriter p = FixedPayload<F>();
    p.Set(F::kVersion, kServingRssiVersion);
    p.Set(F::kRssiWord, RssiWord(state.rssi_dbm));
    return p.Take();
}

std::vector<uint8_t> WcdmaNeighbours(const LteState& state) {
    using F = L::LteWcdmaNeighbours;
    PayloadWriter p = FixedPayload<F>();
    size_t count = std::min(state.wcdma_rscp.size(), F::kMaxEntries);
    p.Set(F::kUarfcn, state.wcdma_uarfcn);
    p.Set(F::kEntryCount, int64_t(count));
    for (size_t i = 1; i <= count; ++i) p.Set(F::Rscp(i), state.wcdma_rscp[i - 1]);
    return p.Take();
}

std::vector<uint8_t> CdmaNeighbours(const LteState& state) {
    using F = L::LteCdmaNeighbours;
    PayloadWriter p = FixedPayload<F>();
    for (size_t k = 0; k < std::min(state.cdma.size(), F::kEntries); ++k) {
        p.Set(F::PilotPn(k), state.cdma[k].pilot_pn);
        p.Set(F::Rssi(k), state.cdma[k].rssi);
        p.Set(F::Ecio(k), state.cdma[k].ecio);
    }
    return p.Take();
}

std::vector<uint8_t> UeIdentity(const LteState& state) {
    using F = L::LteUeIdentity;
    PayloadWriter p = FixedPayload<F>();
    std::vector<uint8_t> plmn = state.PlmnOctets();
    for (size_t i = 0; i < plmn.size(); ++i) p.Set(F::PlmnByte(i), plmn[i]);
    p.Set(F::kValid, state.identity_valid ? 1 : 0);
    p.Set(F::kIdentityType, state.identity_type);
    p.Set(F::kMmegi, state.mmegi);
    p.Set(F::kMmec, state.mmec);
    // Big-endian: the most significant byte first; the daemon reads three.
    for (size_t i = 0; i < 4; ++i) p.Set(F::MTmsiByte(i), uint8_t(state.m_tmsi >> (24 - 8 * i)));
    return p.Take();
}

// One direction's RLC configuration: the record header, the released
// records, rb_count and one list entry per bearer.
std::vector<uint8_t> RlcConfig(const LteState& state, const L::RlcConfig::ListShape& shape) {
    using P = L::RlcConfigPacket;
    size_t count_at = P::RbCountOffset(state.rlc_released) - kLogHeaderSize;
    size_t count = std::min(state.bearers.size(), L::RlcConfig::kMaxListEntries);
    size_t list_size = 0;
    for (size_t b = 0; b < count; ++b)
        list_size +=
            state.bearers[b].mode == RlcMode::kAm ? shape.type1_length : shape.type2_length;
    PayloadWriter p(count_at + 1 + list_size);
    p.U8(0, 1);  // version
    p.U8(1, 1);  // one subpacket
    p.Set(P::kSkipRecordCount, state.rlc_released);
    for (size_t r = 0; r < state.rlc_released; ++r)
        p.U8(P::RbCountOffset(r) - kLogHeaderSize, 0x20 + r);  // a released bearer's id
    p.U8(count_at, count);
    size_t at = count_at + 1;
    for (size_t b = 0; b < count; ++b) {
        const RlcBearer& bearer = state.bearers[b];
        bool am = bearer.mode == RlcMode::kAm;
        p.SetIn(at, L::RlcConfig::kEntryType, am ? 1 : 2);
        p.U8(at + 1, bearer.rb_id);
        p.SetIn(at, L::RlcConfig::kEntryCfgIdx, bearer.cfg_idx);
        p.SetIn(at, L::RlcConfig::kEntryKind, uint8_t(bearer.kind));
        at += am ? shape.type1_length : shape.type2_length;
    }
    return p.Take();
}

std::vector<uint8_t> RlcDlStatistics(const LteState& state) {
    using E = L::RlcDlStatsEntry;
    size_t header = L::RlcStatsPacket::kDlHeaderSize - kLogHeaderSize;
    PayloadWriter p(header + E::kSize * state.rlc_dl.size());
    p.U8(0, 1);  // version
    p.U8(1, 1);  // one subpacket
    p.Set(L::RlcStatsPacket::kEntryCount, int64_t(state.rlc_dl.size()));
    for (size_t s = 0; s < state.rlc_dl.size(); ++s) {
        size_t at = header + E::kSize * s;
        const RlcDlCounters& c = state.rlc_dl[s].counters;
        p.SetIn(at, E::kCfgIdx, state.rlc_dl[s].bearer.cfg_idx);
        p.SetIn(at, E::kMode, uint8_t(state.rlc_dl[s].bearer.mode));
        p.SetIn(at, E::kNumRst, c.num_rst);
        p.SetIn(at, E::kNumDataPdu, c.num_data_pdu);
        p.SetIn(at, E::kNumStatusRxed, c.num_status_rxed);
        p.SetIn(at, E::kNumInvalidPdu, c.num_invalid_pdu);
        p.SetIn(at, E::kNumRetxPdu, c.num_retx_pdu);
        p.SetIn(at, E::kNumDupPdu, c.num_dup_pdu);
        p.SetIn(at, E::kNumDroppedPdu, c.num_dropped_pdu);
        p.SetIn(at, E::kNumDroppedPduFc, c.num_dropped_pdu_fc);
        p.SetIn(at, E::kNumSdu, c.num_sdu);
        p.SetIn(at, E::kNumNonseqSdu, c.num_nonseq_sdu);
        p.SetIn(at, E::kNumCtrlPdu, c.num_ctrl_pdu);
        p.SetIn(at, E::kNumCompNack, c.num_comp_nack);
        p.SetIn(at, E::kNumSegmNack, c.num_segm_nack);
        p.SetIn(at, E::kNumTReordExp, c.num_t_reord_exp);
    }
    return p.Take();
}

std::vector<uint8_t> RlcUlStatistics(const LteState& state) {
    using E = L::RlcUlStatsEntry;
    size_t header = L::RlcStatsPacket::kUlHeaderSize - kLogHeaderSize;
    PayloadWriter p(header + E::kSize * state.rlc_ul.size());
    p.U8(0, 1);  // version
    p.U8(1, 1);  // one subpacket
    p.Set(L::RlcStatsPacket::kEntryCount, int64_t(state.rlc_ul.size()));
    for (size_t s = 0; s < state.rlc_ul.size(); ++s) {
        size_t at = header + E::kSize * s;
        const RlcUlCounters& c = state.rlc_ul[s].counters;
        p.SetIn(at, E::kCfgIdx, state.rlc_ul[s].bearer.cfg_idx);
        p.SetIn(at, E::kMode, uint8_t(state.rlc_ul[s].bearer.mode));
        p.SetIn(at, E::kNumRst, c.num_rst);
        p.SetIn(at, E::kNumDataPdu, c.num_data_pdu);
        p.SetIn(at, E::kNumSdu, c.num_sdu);
        p.SetIn(at, E::kNumCtrlPduTx, c.num_ctrl_pdu_tx);
        p.SetIn(at, E::kNumRetxPdu, c.num_retx_pdu);
        p.SetIn(at, E::kNumCtrlPduRx, c.num_ctrl_pdu_rx);
        p.SetIn(at, E::kNumCompNack, c.num_comp_nack);
        p.SetIn(at, E::kNumSegmNack, c.num_segm_nack);
        p.SetIn(at, E::kNumInvalidCtrlPduRx, c.num_invalid_ctrl_pdu_rx);
        p.SetIn(at, E::kNumPoll, c.num_poll);
        p.SetIn(at, E::kNumTPollRetxExpiry, c.num_t_poll_retx_expiry);
    }
    return p.Take();
}

}  // namespace

uint32_t RssiWord(int dbm) {
    uint32_t v = uint32_t(std::clamp(dbm, -110, -10) + 110) << 4;
    return (v & 0x3FFF) << 10;
}

std::vector<LogPayload> LteLogPayloads(const LteState& state) {
    return {
        {L::LteServingCell::kCode, ServingCell(state)},
        {L::LteServingMeasurements::kCode, ServingMeasurements(state)},
        {L::LteServingRssi::kCode, ServingRssi(state)},
        {L::LteWcdmaNeighbours::kCode, WcdmaNeighbours(state)},
        {L::LteCdmaNeighbours::kCode, CdmaNeighbours(state)},
        {L::LteUeIdentity::kCode, UeIdentity(state)},
        {L::RlcConfig::kDlCode, RlcConfig(state, L::RlcConfig::kDlList)},
        {L::RlcConfig::kUlCode, RlcConfig(state, L::RlcConfig::kUlList)},
        {L::RlcDlStatsEntry::kCode, RlcDlStatistics(state)},
        {L::RlcUlStatsEntry::kCode, RlcUlStatistics(state)},
    };
}

}  // namespace modemsim
