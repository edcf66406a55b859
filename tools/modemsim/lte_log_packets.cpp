#include "tools/modemsim/lte_log_packets.h"

#include <algorithm>

#include "platform/dmux/log_layouts.h"
#include "platform/dmux/log_layouts.h"

namespace modemsim {

namespace {

namespace L = log_layout;

// What the daemon keeps of a fixed-size code, less the log header.
template <class Layout>
PayloadWriter FixedPayload() {
    return PayloadWriter(Layout::kSize - kLogHeaderSize);
}

// The modem sends the versions whose layout the daemon reads: the DIAG
// library drops any other version it cannot translate.
namespace target = log_layout;

// The RLC packets' header: version, one subpacket, then the subpacket's id,
// version and size (counted from its first byte to the end of the record).
void RlcSubpacketHeader(PayloadWriter& p, uint8_t id, uint8_t version) {
    p.Set(target::kVersion, target::kRlcVersionValue);
    p.Set(target::kSubpacketCount, 1);
    p.Set(target::kSubpacketId, id);
    p.Set(target::kSubpacketVersion, version);
    p.Set(target::kSubpacketSize, int64_t(kLogHeaderSize + p.size() - target::kSubpacketStart));
}
// Record byte 33 of 0xB0C2: how many digits the MNC has.
constexpr rt::Field<uint8_t> kMncDigits{33};

std::vector<uint8_t> ServingCell(const LteState& state) {
    using F = L::LteServingCell;
    PayloadWriter p = FixedPayload<F>();
    p.Set(target::kVersion, target::LteServingCell::kVersionValue);
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
    p.Set(target::kVersion, target::LteServingMeasurements::kVersionValue);
    p.Set(F::kEarfcn, state.dl_earfcn);
    p.Set(F::kPci, state.pci);
    p.Set(F::kRawRsrp, state.rsrp);
    p.Set(F::kRawRsrq, state.rsrq);
    return p.Take();
}

std::vector<uint8_t> ServingRssi(const LteState& state) {
    using F = L::LteServingRssi;
    PayloadWriter p = FixedPayload<F>();
    p.Set(target::kVersion, target::LteServingRssi::kVersionValue);
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
    p.Set(target::kVersion, target::LteUeIdentity::kVersionValue);
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
std::vector<uint8_t> RlcConfig(const LteState& state, const L::RlcConfig::ListShape& shape,
                               uint8_t subpacket_id) {
    using P = L::RlcConfig;
    size_t count_at = P::RbCountOffset(state.rlc_released) - kLogHeaderSize;
    size_t count = std::min(state.bearers.size(), L::RlcConfig::kMaxListEntries);
    size_t list_size = 0;
    for (size_t b = 0; b < count; ++b)
        list_size +=
            state.bearers[b].mode == RlcMode::kAm ? shape.type1_length : shape.type2_length;
    PayloadWriter p(count_at + 1 + list_size);
    RlcSubpacketHeader(p, subpacket_id, target::RlcConfig::kSubpacketVersionValue);
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

// Where each counter of a bearer goes in its direction's statistics entry.
template <class Counters>
struct CounterField {
    rt::Field<uint32_t> field;
    uint32_t Counters::*value;
};

using DlEntry = L::RlcDlStats;
constexpr CounterField<RlcDlCounters> kDlCounterFields[] = {
    {DlEntry::kNumRst, &RlcDlCounters::num_rst},
    {DlEntry::kNumDataPdu, &RlcDlCounters::num_data_pdu},
    {DlEntry::kNumStatusRxed, &RlcDlCounters::num_status_rxed},
    {DlEntry::kNumInvalidPdu, &RlcDlCounters::num_invalid_pdu},
    {DlEntry::kNumRetxPdu, &RlcDlCounters::num_retx_pdu},
    {DlEntry::kNumDupPdu, &RlcDlCounters::num_dup_pdu},
    {DlEntry::kNumDroppedPdu, &RlcDlCounters::num_dropped_pdu},
    {DlEntry::kNumDroppedPduFc, &RlcDlCounters::num_dropped_pdu_fc},
    {DlEntry::kNumSdu, &RlcDlCounters::num_sdu},
    {DlEntry::kNumNonseqSdu, &RlcDlCounters::num_nonseq_sdu},
    {DlEntry::kNumCtrlPdu, &RlcDlCounters::num_ctrl_pdu},
    {DlEntry::kNumCompNack, &RlcDlCounters::num_comp_nack},
    {DlEntry::kNumSegmNack, &RlcDlCounters::num_segm_nack},
    {DlEntry::kNumTReordExp, &RlcDlCounters::num_t_reord_exp},
};

using UlEntry = L::RlcUlStats;
constexpr CounterField<RlcUlCounters> kUlCounterFields[] = {
    {UlEntry::kNumRst, &RlcUlCounters::num_rst},
    {UlEntry::kNumDataPdu, &RlcUlCounters::num_data_pdu},
    {UlEntry::kNumSdu, &RlcUlCounters::num_sdu},
    {UlEntry::kNumCtrlPduTx, &RlcUlCounters::num_ctrl_pdu_tx},
    {UlEntry::kNumRetxPdu, &RlcUlCounters::num_retx_pdu},
    {UlEntry::kNumCtrlPduRx, &RlcUlCounters::num_ctrl_pdu_rx},
    {UlEntry::kNumCompNack, &RlcUlCounters::num_comp_nack},
    {UlEntry::kNumSegmNack, &RlcUlCounters::num_segm_nack},
    {UlEntry::kNumInvalidCtrlPduRx, &RlcUlCounters::num_invalid_ctrl_pdu_rx},
    {UlEntry::kNumPoll, &RlcUlCounters::num_poll},
    {UlEntry::kNumTPollRetxExpiry, &RlcUlCounters::num_t_poll_retx_expiry},
};

// One statistics packet of a direction: its header, then one entry per
// bearer with the bearer's index, mode and counters.
template <class Entry, class Target, class Stats, class Counters, size_t N>
std::vector<uint8_t> RlcStatistics(const std::vector<Stats>& stats, size_t header_size,
                                   const CounterField<Counters> (&fields)[N]) {
    size_t header = header_size - kLogHeaderSize;
    PayloadWriter p(header + Entry::kEntrySize * stats.size());
    RlcSubpacketHeader(p, Target::kSubpacketIdValue, Target::kSubpacketVersionValue);
    p.Set(L::RlcDlStats::kCount, int64_t(stats.size()));
    for (size_t s = 0; s < stats.size(); ++s) {
        size_t at = header + Entry::kEntrySize * s;
        p.SetIn(at, Entry::kCfgIdx, stats[s].bearer.cfg_idx);
        p.SetIn(at, Entry::kMode, uint8_t(stats[s].bearer.mode));
        for (const CounterField<Counters>& counter : fields)
            p.SetIn(at, counter.field, stats[s].counters.*counter.value);
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
        {L::RlcConfig::kDlCode,
         RlcConfig(state, L::RlcConfig::kDlList, target::RlcConfig::kDlSubpacketId)},
        {L::RlcConfig::kUlCode,
         RlcConfig(state, L::RlcConfig::kUlList, target::RlcConfig::kUlSubpacketId)},
        {DlEntry::kCode, RlcStatistics<DlEntry, target::RlcDlStats>(
                             state.rlc_dl, L::RlcDlStats::kHeaderSize, kDlCounterFields)},
        {UlEntry::kCode, RlcStatistics<UlEntry, target::RlcUlStats>(
                             state.rlc_ul, L::RlcUlStats::kHeaderSize, kUlCounterFields)},
    };
}

}  // namespace modemsim
