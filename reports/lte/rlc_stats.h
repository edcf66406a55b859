// The LTE RLC section of the lteopinfo report: per direction, how many
// signalling (SRB) and data (DRB) radio bearers the RLC configuration
// holds, and each bearer's RLC counters from the statistics packet.
//
// A configuration step fills the bearer tables of its direction (kept in
// the snapshot store); the status step of the same direction then uses them
// to pick and order the statistics entries, so the steps run in the order
// PublishRlcDlConfig, PublishRlcDlStatus, PublishRlcUlConfig,
// PublishRlcUlStatus.
#pragma once

#include <cstdint>
#include <span>

#include "platform/common/byte_layout.h"
#include "platform/dmux/log_layouts.h"

class ReportWriter;
class RlcConfigView;
class RlcStatsView;

// One 32-bit counter of a statistics entry, published under its numbered name.
struct RlcCounter {
    const char* format;
    rt::Field<uint32_t> field;
};

// What tells the downlink from the uplink: codes, list shape, names, counters.
struct RlcDirection {
    uint16_t config_code;
    log_layout::RlcConfig::ListShape list;
    uint16_t stats_code;
    rt::Field<uint8_t> entry_cfg_idx;
    rt::Field<uint8_t> entry_mode;
    std::span<const RlcCounter> counters;
    const char* srb_num;
    const char* drb_num;
    const char* srb_status;
    const char* drb_status;
};
extern const RlcDirection kRlcDownlink;
extern const RlcDirection kRlcUplink;

// Bearer kinds in the configuration list and the bearer tables.
inline constexpr uint8_t kRlcSrb = 1;
inline constexpr uint8_t kRlcDrb = 2;

void PublishRlcDlConfig(ReportWriter& report);
void PublishRlcDlStatus(ReportWriter& report);
void PublishRlcUlConfig(ReportWriter& report);
void PublishRlcUlStatus(ReportWriter& report);

// The two count attributes of a direction; fills its bearer tables.
void PublishRlcConfig(ReportWriter& report, const RlcDirection& direction);
// The two status arrays of a direction, or nothing without statistics.
void PublishRlcStatus(ReportWriter& report, const RlcDirection& direction);
// The objects of one status array: the statistics entries of the bearers of
// `kind`, in the bearers' list order, then in the entries' order, at most 15.
void PublishRlcBearerStats(ReportWriter& report, const RlcDirection& direction,
                           const RlcConfigView& config, const RlcStatsView& stats, uint8_t kind);
