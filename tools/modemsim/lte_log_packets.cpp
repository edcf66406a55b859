#include "tools/modemsim/lte_log_packets.h"

#include <algorithm>

#include "tools/modemsim/lte_log_records.h"

namespace modemsim {

namespace {

namespace R = lte_record;

std::vector<uint8_t> ServingCell(const LteState& state) {
    using F = R::ServingCell;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(R::kVersion, F::kVersionValue);
        p.Write(F::kPci, state.pci);
        p.Write(F::kDlEarfcn, state.dl_earfcn);
        p.Write(F::kUlEarfcn, state.ul_earfcn);
        p.Write(F::kDlBandwidthRb, state.dl_bandwidth_rb);
        p.Write(F::kUlBandwidthRb, state.ul_bandwidth_rb);
        p.Write(F::kCellId, state.cell_id);
        p.Write(F::kTac, state.tac);
        p.Write(F::kBand, state.band);
        p.Write(F::kMcc, state.mcc);
        p.Write(F::kMncDigits, state.mnc_digits);
        p.Write(F::kMnc, state.mnc);
    });
}

std::vector<uint8_t> ServingMeasurements(const LteState& state) {
    using F = R::ServingMeasurements;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(R::kVersion, F::kVersionValue);
        p.Write(F::kServingCellIndex, 0);  // the primary cell
        p.Write(F::kEarfcn, state.dl_earfcn);
        p.Write(F::kPci, state.pci);
        for (auto field : {F::kRawRsrp, F::kRawRsrpRepeated}) p.Write(field, state.rsrp);
        for (auto field : {F::kRawRsrq, F::kRawRsrqRepeated}) p.Write(field, state.rsrq);
    });
}

std::vector<uint8_t> ServingRssi(const LteState& state) {
    using F = R::ServingRssi;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(R::kVersion, F::kVersionValue);
        p.Write(F::kEarfcn, state.dl_earfcn);
        p.Write(F::kPci, state.pci);
        p.Write(F::kRssiWord, RssiWord(state.rssi_dbm));
    });
}

std::vector<uint8_t> WcdmaNeighbours(const LteState& state) {
    using F = R::WcdmaNeighbours;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        size_t count = std::min(state.wcdma_rscp.size(), F::kMaxEntries);
        p.Write(F::kUarfcn, state.wcdma_uarfcn);
        p.Write(F::kEntryCount, int64_t(count));
        for (size_t i = 1; i <= count; ++i) p.Write(F::Rscp(i), state.wcdma_rscp[i - 1]);
    });
}

std::vector<uint8_t> CdmaNeighbours(const LteState& state) {
    using F = R::CdmaNeighbours;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        for (size_t k = 0; k < std::min(state.cdma.size(), F::kEntries); ++k) {
            p.Write(F::PilotPn(k), state.cdma[k].pilot_pn);
            p.Write(F::Rssi(k), state.cdma[k].rssi);
            p.Write(F::Ecio(k), state.cdma[k].ecio);
        }
    });
}

std::vector<uint8_t> UeIdentity(const LteState& state) {
    using F = R::UeIdentity;
    return BuildPayload(F::kSize, [&](rt::FieldWriter& p) {
        p.Write(R::kVersion, F::kVersionValue);
        std::vector<uint8_t> plmn = state.PlmnOctets();
        p.WriteBytes(F::kPlmn, plmn);
        p.Write(F::kValid, state.identity_valid ? 1 : 0);
        p.Write(F::kIdentityType, state.identity_type);
        p.WriteBytes(F::kGutiPlmn, plmn);
        p.Write(F::kMmegi, state.mmegi);
        p.Write(F::kMmec, state.mmec);
        const uint32_t m = state.m_tmsi;
        p.WriteBytes(F::kMTmsi, std::vector<uint8_t>{uint8_t(m >> 24), uint8_t(m >> 16),
                                                     uint8_t(m >> 8), uint8_t(m)});
    });
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
void RlcHeader(rt::FieldWriter& p, uint8_t id, uint8_t version) {
    p.Write(R::kVersion, R::rlc::kVersionValue);
    p.Write(R::rlc::kSubpacketCount, 1);
    p.Write(R::rlc::kSubpacketId, id);
    p.Write(R::rlc::kSubpacketVersion, version);
    p.Write(R::rlc::kSubpacketSize, int64_t(p.size() - R::rlc::kSubpacketStart));
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
    return BuildPayload(PaddedRlcSize(content), [&](rt::FieldWriter& p) {
        RlcHeader(p, subpacket_id, C::kSubpacketVersion);
        p.Write(C::kReleasedCount, state.rlc_released);
        for (size_t r = 0; r < state.rlc_released; ++r)
            p.Write(C::Released(r), int64_t(0x20 + r));  // a released bearer's id
        p.Write(count, int64_t(state.bearers.size()));
        size_t at = count.offset + 1;
        for (const RlcBearer& bearer : state.bearers) {
            p.Write(C::kEntryType.In(at), uint8_t(bearer.mode));
            p.Write(C::kEntryRbId.In(at), bearer.rb_id);
            p.Write(C::kEntryCfgIdx.In(at), bearer.cfg_idx);
            p.Write(C::kEntryKind.In(at), uint8_t(bearer.kind));
            at += entry_size(bearer);
        }
    });
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
    return BuildPayload(PaddedRlcSize(Layout::kEntriesStart + Layout::kEntrySize * stats.size()),
                        [&](rt::FieldWriter& p) {
                            RlcHeader(p, Layout::kSubpacketId, Layout::kSubpacketVersion);
                            p.Write(Layout::kCount, int64_t(stats.size()));
                            for (size_t s = 0; s < stats.size(); ++s) {
                                size_t at = Layout::kEntriesStart + Layout::kEntrySize * s;
                                p.Write(Layout::kCfgIdx.In(at), stats[s].bearer.cfg_idx);
                                p.Write(Layout::kMode.In(at), uint8_t(stats[s].bearer.mode));
                                for (const CounterField<Counters>& counter : fields)
                                    p.Write(counter.field.In(at), stats[s].counters.*counter.value);
                            }
                        });
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
