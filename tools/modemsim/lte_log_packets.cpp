#include "tools/modemsim/lte_log_packets.h"

#include <algorithm>

#include "tools/modemsim/lte_log_records.h"

namespace modemsim {

namespace {

namespace R = lte_record;

std::vector<uint8_t> ServingCell(const LteState& state) {
    using F = R::ServingCell;
    PayloadWriter p(F::kSize);
    p.Set(R::kVersion, F::kVersionValue);
    p.Set(F::kPci, state.pci);
    p.Set(F::kDlEarfcn, state.dl_earfcn);
    p.Set(F::kUlEarfcn, state.ul_earfcn);
    p.Set(F::kDlBandwidthRb, state.dl_bandwidth_rb);
    p.Set(F::kUlBandwidthRb, state.ul_bandwidth_rb);
    p.Set(F::kCellId, state.cell_id);
    p.Set(F::kTac, state.tac);
    p.Set(F::kBand, state.band);
    p.Set(F::kMcc, state.mcc);
    p.Set(F::kMncDigits, state.mnc_digits);
    p.Set(F::kMnc, state.mnc);
    return p.Take();
}

std::vector<uint8_t> ServingMeasurements(const LteState& state) {
    using F = R::ServingMeasurements;
    PayloadWriter p(F::kSize);
    p.Set(R::kVersion, F::kVersionValue);
    p.Set(F::kServingCellIndex, 0);  // the primary cell
    p.Set(F::kEarfcn, state.dl_earfcn);
    p.Set(F::kPci, state.pci);
    for (auto field : {F::kRawRsrp, F::kRawRsrpRepeated}) p.Set(field, state.rsrp);
    for (auto field : {F::kRawRsrq, F::kRawRsrqRepeated}) p.Set(field, state.rsrq);
    return p.Take();
}

std::vector<uint8_t> ServingRssi(const LteState& state) {
    using F = R::ServingRssi;
    PayloadWriter p(F::kSize);
    p.Set(R::kVersion, F::kVersionValue);
    p.Set(F::kEarfcn, state.dl_earfcn);
    p.Set(F::kPci, state.pci);
    p.Set(F::kRssiWord, RssiWord(state.rssi_dbm));
    return p.Take();
}

std::vector<uint8_t> WcdmaNeighbours(const LteState& state) {
    using F = R::WcdmaNeighbours;
    PayloadWriter p(F::kSize);
    size_t count = std::min(state.wcdma_rscp.size(), F::kMaxEntries);
    p.Set(F::kUarfcn, state.wcdma_uarfcn);
    p.Set(F::kEntryCount, int64_t(count));
    for (size_t i = 1; i <= count; ++i) p.Set(F::Rscp(i), state.wcdma_rscp[i - 1]);
    return p.Take();
}

std::vector<uint8_t> CdmaNeighbours(const LteState& state) {
    using F = R::CdmaNeighbours;
    PayloadWriter p(F::kSize);
    for (size_t k = 0; k < std::min(state.cdma.size(), F::kEntries); ++k) {
        p.Set(F::PilotPn(k), state.cdma[k].pilot_pn);
        p.Set(F::Rssi(k), state.cdma[k].rssi);
        p.Set(F::Ecio(k), state.cdma[k].ecio);
    }
    return p.Take();
}

std::vector<uint8_t> UeIdentity(const LteState& state) {
    using F = R::UeIdentity;
    PayloadWriter p(F::kSize);
    p.Set(R::kVersion, F::kVersionValue);
    std::vector<uint8_t> plmn = state.PlmnOctets();
    p.Bytes(F::kPlmn, plmn);
    p.Set(F::kValid, state.identity_valid ? 1 : 0);
    p.Set(F::kIdentityType, state.identity_type);
    p.Bytes(F::kGutiPlmn, plmn);
    p.Set(F::kMmegi, state.mmegi);
    p.Set(F::kMmec, state.mmec);
    const uint32_t m = state.m_tmsi;
    p.Bytes(F::kMTmsi,
            std::vector<uint8_t>{uint8_t(m >> 24), uint8_t(m >> 16), uint8_t(m >> 8), uint8_t(m)});
    return p.Take();
}

// A record of `content` bytes, grown so that its subpacket is a whole
// number of 4-byte words.
size_t PaddedRlcSize(size_t content) {
    size_t sub = content - R::rlc::kSubpacketStart;
    size_t align = R::rlc::kSubpacketAlign;
    return R::rlc::kSubpacketStart + (sub + align - 1) / align * align;
}

// The RLC packets' header: version, one subpacket, then its id, version
// and size.
void RlcHeader(PayloadWriter& p, uint8_t id, uint8_t version) {
    p.Set(R::kVersion, R::rlc::kVersionValue);
    p.Set(R::rlc::kSubpacketCount, 1);
    p.Set(R::rlc::kSubpacketId, id);
    p.Set(R::rlc::kSubpacketVersion, version);
    p.Set(R::rlc::kSubpacketSize, int64_t(p.record_size() - R::rlc::kSubpacketStart));
}

// One direction's RLC configuration: the released records, the bearer
// count and one list entry per bearer.
std::vector<uint8_t> RlcConfig(const LteState& state, uint8_t subpacket_id,
                               R::RlcConfig::EntrySizes sizes) {
    using C = R::RlcConfig;
    auto entry_size = [&](const RlcBearer& b) {
        return b.mode == RlcMode::kAm ? sizes.am : sizes.um;
    };
    rt::Field<uint8_t> count = C::BearerCount(state.rlc_released);
    size_t content = count.offset + 1;
    for (const RlcBearer& bearer : state.bearers) content += entry_size(bearer);
    PayloadWriter p(PaddedRlcSize(content));
    RlcHeader(p, subpacket_id, C::kSubpacketVersion);
    p.Set(C::kReleasedCount, state.rlc_released);
    for (size_t r = 0; r < state.rlc_released; ++r)
        p.Set(C::Released(r), int64_t(0x20 + r));  // a released bearer's id
    p.Set(count, int64_t(state.bearers.size()));
    size_t at = count.offset + 1;
    for (const RlcBearer& bearer : state.bearers) {
        p.SetIn(at, C::kEntryType, uint8_t(bearer.mode));
        p.SetIn(at, C::kEntryRbId, bearer.rb_id);
        p.SetIn(at, C::kEntryCfgIdx, bearer.cfg_idx);
        p.SetIn(at, C::kEntryKind, uint8_t(bearer.kind));
        at += entry_size(bearer);
    }
    return p.Take();
}

// Where each counter of a bearer goes in its direction's statistics entry.
template <class Counters>
struct CounterField {
    rt::Field<uint32_t> field;
    uint32_t Counters::*value;
};

using Dl = R::RlcDlStats;
constexpr CounterField<RlcDlCounters> kDlCounterFields[] = {
    {Dl::kNumRst, &RlcDlCounters::num_rst},
    {Dl::PairCount(Dl::kDataPdu), &RlcDlCounters::num_data_pdu},
    {Dl::PairCount(Dl::kStatusRxed), &RlcDlCounters::num_status_rxed},
    {Dl::PairCount(Dl::kInvalidPdu), &RlcDlCounters::num_invalid_pdu},
    {Dl::PairCount(Dl::kRetxPdu), &RlcDlCounters::num_retx_pdu},
    {Dl::PairCount(Dl::kDupPdu), &RlcDlCounters::num_dup_pdu},
    {Dl::PairCount(Dl::kDroppedPdu), &RlcDlCounters::num_dropped_pdu},
    {Dl::PairCount(Dl::kDroppedPduFc), &RlcDlCounters::num_dropped_pdu_fc},
    {Dl::PairCount(Dl::kSdu), &RlcDlCounters::num_sdu},
    {Dl::kNumNonseqSdu, &RlcDlCounters::num_nonseq_sdu},
    {Dl::kNumCtrlPdu, &RlcDlCounters::num_ctrl_pdu},
    {Dl::kNumCompNack, &RlcDlCounters::num_comp_nack},
    {Dl::kNumSegmNack, &RlcDlCounters::num_segm_nack},
    {Dl::kNumTReordExp, &RlcDlCounters::num_t_reord_exp},
};

using Ul = R::RlcUlStats;
constexpr CounterField<RlcUlCounters> kUlCounterFields[] = {
    {Ul::kNumRst, &RlcUlCounters::num_rst},
    {Ul::kNumDataPdu, &RlcUlCounters::num_data_pdu},
    {Ul::kNumSdu, &RlcUlCounters::num_sdu},
    {Ul::kNumCtrlPduTx, &RlcUlCounters::num_ctrl_pdu_tx},
    {Ul::kNumRetxPdu, &RlcUlCounters::num_retx_pdu},
    {Ul::kNumCtrlPduRx, &RlcUlCounters::num_ctrl_pdu_rx},
    {Ul::kNumCompNack, &RlcUlCounters::num_comp_nack},
    {Ul::kNumSegmNack, &RlcUlCounters::num_segm_nack},
    {Ul::kNumInvalidCtrlPduRx, &RlcUlCounters::num_invalid_ctrl_pdu_rx},
    {Ul::kNumPoll, &RlcUlCounters::num_poll},
    {Ul::kNumTPollRetxExpiry, &RlcUlCounters::num_t_poll_retx_expiry},
};

// One statistics packet of a direction: the entry count, then one entry
// per bearer with the bearer's index, mode and counters.
template <class Stats, class Layout, class Counters, size_t N>
std::vector<uint8_t> RlcStatistics(const std::vector<Stats>& stats, Layout,
                                   const CounterField<Counters> (&fields)[N]) {
    PayloadWriter p(PaddedRlcSize(Layout::kEntriesStart + Layout::kEntrySize * stats.size()));
    RlcHeader(p, Layout::kSubpacketId, Layout::kSubpacketVersion);
    p.Set(Layout::kCount, int64_t(stats.size()));
    for (size_t s = 0; s < stats.size(); ++s) {
        size_t at = Layout::kEntriesStart + Layout::kEntrySize * s;
        p.SetIn(at, Layout::kCfgIdx, stats[s].bearer.cfg_idx);
        p.SetIn(at, Layout::kMode, uint8_t(stats[s].bearer.mode));
        for (const CounterField<Counters>& counter : fields)
            p.SetIn(at, counter.field, stats[s].counters.*counter.value);
    }
    return p.Take();
}

}  // namespace

uint32_t RssiWord(int dbm) {
    using F = R::ServingRssi;
    uint32_t v = uint32_t(std::clamp(dbm, -110, -10) + 110) << 4;
    return (v & F::kRssiMask) << F::kRssiShift;
}

std::vector<LogPayload> LteLogPayloads(const LteState& state) {
    using C = R::RlcConfig;
    return {
        {R::ServingCell::kCode, ServingCell(state)},
        {R::ServingMeasurements::kCode, ServingMeasurements(state)},
        {R::ServingRssi::kCode, ServingRssi(state)},
        {R::WcdmaNeighbours::kCode, WcdmaNeighbours(state)},
        {R::CdmaNeighbours::kCode, CdmaNeighbours(state)},
        {R::UeIdentity::kCode, UeIdentity(state)},
        {C::kDlCode, RlcConfig(state, C::kDlSubpacketId, C::kDlEntry)},
        {C::kUlCode, RlcConfig(state, C::kUlSubpacketId, C::kUlEntry)},
        {Dl::kCode, RlcStatistics(state.rlc_dl, Dl{}, kDlCounterFields)},
        {Ul::kCode, RlcStatistics(state.rlc_ul, Ul{}, kUlCounterFields)},
    };
}

}  // namespace modemsim
