#include "reports/lte/rlc_stats.h"

#include <algorithm>

#include "diaglog/log_snapshot_store.h"
#include "service/report_writer.h"

namespace {

using log_layout::RlcConfig;
using log_layout::RlcDlStats;
using log_layout::RlcUlStats;

// The bearer tables have 15 positions: an rb_count above 15 is walked only
// that far, in the configuration list and in the statistics match alike.
constexpr size_t kMaxBearers = RlcConfig::kMaxListEntries;
// Objects in one status array.
constexpr int kMaxObjects = 15;

constexpr uint8_t kEntryType1 = 1;
constexpr uint8_t kEntryType2 = 2;

constexpr uint8_t kModeAm = 1;
constexpr uint8_t kModeUm = 2;
constexpr const char* kModeAmText = "AM";
constexpr const char* kModeUmText = "UM";

constexpr RlcCounter kDlCounters[] = {
    {"num_rst%1d", RlcDlStats::kNumRst},
    {"num_data_pdu%1d", RlcDlStats::kNumDataPdu},
    {"num_status_rxed%1d", RlcDlStats::kNumStatusRxed},
    {"num_invalid_pdu%1d", RlcDlStats::kNumInvalidPdu},
    {"num_retx_pdu%1d", RlcDlStats::kNumRetxPdu},
    {"num_dup_pdu%1d", RlcDlStats::kNumDupPdu},
    {"num_dropped_pdu%1d", RlcDlStats::kNumDroppedPdu},
    {"num_dropped_pdu_fc%1d", RlcDlStats::kNumDroppedPduFc},
    {"num_sdu%1d", RlcDlStats::kNumSdu},
    {"num_nonseq_sdu%1d", RlcDlStats::kNumNonseqSdu},
    {"num_ctrl_pdu%1d", RlcDlStats::kNumCtrlPdu},
    {"num_comp_nack%1d", RlcDlStats::kNumCompNack},
    {"num_segm_nack%1d", RlcDlStats::kNumSegmNack},
    {"num_t_reord_exp%1d", RlcDlStats::kNumTReordExp},
};

constexpr RlcCounter kUlCounters[] = {
    {"num_rst%1d", RlcUlStats::kNumRst},
    {"num_data_pdu%1d", RlcUlStats::kNumDataPdu},
    {"num_sdu%1d", RlcUlStats::kNumSdu},
    {"num_ctrl_pdu_tx%1d", RlcUlStats::kNumCtrlPduTx},
    {"num_retx_pdu%1d", RlcUlStats::kNumRetxPdu},
    {"num_ctrl_pdu_rx%1d", RlcUlStats::kNumCtrlPduRx},
    {"num_comp_nack%1d", RlcUlStats::kNumCompNack},
    {"num_segm_nack%1d", RlcUlStats::kNumSegmNack},
    {"num_invalid_ctrl_pdu_rx%1d", RlcUlStats::kNumInvalidCtrlPduRx},
    {"num_poll%1d", RlcUlStats::kNumPoll},
    {"num_t_poll_retx_expiry%1d", RlcUlStats::kNumTPollRetxExpiry},
};

size_t BearerPositions(const RlcConfigView& config) {
    return std::min<size_t>(config.rb_count(), kMaxBearers);
}

// One statistics entry as one unnamed object, its attributes numbered k.
void PublishEntry(ReportWriter& report, const RlcDirection& direction, const rt::FieldReader& entry,
                  int k) {
    report.StartObject();
    report.Int(Numbered("rb_cfg_idx%1d", k), entry.Get(direction.entry_cfg_idx));
    // Another mode byte writes no mode attribute.
    const uint8_t mode = entry.Get(direction.entry_mode);
    const char* mode_text = mode == kModeAm ? kModeAmText : mode == kModeUm ? kModeUmText : nullptr;
    if (mode_text != nullptr) report.String(Numbered("mode%1d", k), mode_text);
    // Unsigned counters go out as signed 32-bit numbers: 0xFFFFFFFF is -1.
    for (const RlcCounter& counter : direction.counters)
        report.Int(Numbered(counter.format, k), static_cast<int32_t>(entry.Get(counter.field)));
    report.EndObject();
}

}  // namespace

const RlcDirection kRlcDownlink = {
    RlcConfig::kDlCode,  RlcConfig::kDlList,  RlcDlStats::kCode, RlcDlStats::kCfgIdx,
    RlcDlStats::kMode,   kDlCounters,         "rlc_dl_srb_num",  "rlc_dl_drb_num",
    "rlc_dl_srb_status", "rlc_dl_drb_status",
};

const RlcDirection kRlcUplink = {
    RlcConfig::kUlCode,  RlcConfig::kUlList,  RlcUlStats::kCode, RlcUlStats::kCfgIdx,
    RlcUlStats::kMode,   kUlCounters,         "rlc_ul_srb_num",  "rlc_ul_drb_num",
    "rlc_ul_srb_status", "rlc_ul_drb_status",
};

void PublishRlcConfig(ReportWriter& report, const RlcDirection& direction) {
    const RlcConfigView config = g_log_snapshot_store.RlcConfigCopy(direction.config_code);
    if (!config.has_packet()) {
        // The bearer tables stay as they are.
        report.NoData(direction.srb_num);
        report.NoData(direction.drb_num);
        return;
    }
    RlcBearerTables tables = config.tables();
    int counts[3] = {0, 0, 0};  // by kind: SRBs at 1, DRBs at 2
    size_t p = 0;
    for (size_t i = 0; i < BearerPositions(config); ++i) {
        const rt::FieldReader entry = config.ListEntryAt(p);
        const uint8_t type = entry.Get(RlcConfig::kEntryType);
        // An unknown type does not move the walk: the next position looks at
        // the same byte again.
        if (type != kEntryType1 && type != kEntryType2) continue;
        const uint8_t kind = entry.Get(RlcConfig::kEntryKind);
        if (kind == kRlcSrb || kind == kRlcDrb) {
            tables.cfg_idx[i] = entry.Get(RlcConfig::kEntryCfgIdx);
            tables.kind[i] = kind;
            ++counts[kind];
        }
        p += type == kEntryType1 ? direction.list.type1_length : direction.list.type2_length;
    }
    g_log_snapshot_store.StoreRlcBearerTables(direction.config_code, config.generation(), tables);
    report.Int(direction.srb_num, counts[kRlcSrb]);
    report.Int(direction.drb_num, counts[kRlcDrb]);
}

void PublishRlcStatus(ReportWriter& report, const RlcDirection& direction) {
    const RlcStatsView stats = g_log_snapshot_store.RlcStatsCopy(direction.stats_code);
    if (!stats.has_packet() || stats.count() == 0) return;
    // The tables as this request's configuration step left them.
    const RlcConfigView config = g_log_snapshot_store.RlcConfigCopy(direction.config_code);
    report.StartArray(direction.srb_status);
    PublishRlcBearerStats(report, direction, config, stats, kRlcSrb);
    report.EndArray();
    report.StartArray(direction.drb_status);
    PublishRlcBearerStats(report, direction, config, stats, kRlcDrb);
    report.EndArray();
}

void PublishRlcBearerStats(ReportWriter& report, const RlcDirection& direction,
                           const RlcConfigView& config, const RlcStatsView& stats, uint8_t kind) {
    int k = 1;
    const RlcBearerTables& tables = config.tables();
    for (size_t j = 0; j < BearerPositions(config) && k <= kMaxObjects; ++j) {
        if (tables.kind[j] != kind) continue;
        for (size_t s = 0; s < stats.count() && k <= kMaxObjects; ++s) {
            const rt::FieldReader entry = stats.Entry(s);
            if (entry.size() == 0) continue;  // counted but not held in the array
            if (entry.Get(direction.entry_cfg_idx) != tables.cfg_idx[j]) continue;
            PublishEntry(report, direction, entry, k);
            ++k;
        }
    }
}

void PublishRlcDlConfig(ReportWriter& report) {
    PublishRlcConfig(report, kRlcDownlink);
}
void PublishRlcDlStatus(ReportWriter& report) {
    PublishRlcStatus(report, kRlcDownlink);
}
void PublishRlcUlConfig(ReportWriter& report) {
    PublishRlcConfig(report, kRlcUplink);
}
void PublishRlcUlStatus(ReportWriter& report) {
    PublishRlcStatus(report, kRlcUplink);
}
