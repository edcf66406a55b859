#include "reports/wcdma/hspa_op_info.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "diaglog/log_snapshot_store.h"
#include "platform/common/code_name.h"
#include "reports/report_rows.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::Cqi;
using log_layout::HsdpaRate;
using log_layout::HspaUeState;
using log_layout::TransportChannels;

// How a CQI sample reads in each format: the code in its low bits names the
// type, and the number sits above the code. The two formats code the types
// the opposite way round.
struct CqiCode {
    uint16_t code;
    const char* name;
    int number_mask;
};
constexpr CqiCode kFormat0Codes[] = {{1, "Type A CQI", 0xFF}, {0, "Type B CQI", 0xFF}};
constexpr CqiCode kFormat1Codes[] = {
    {0, "No CQI DTX", 0x00},
    {1, "Type B CQI", 0x1F},
    {2, "Type A CQI", 0xFF},
    {3, "DCHSPA CQI", 0x1F},
};
struct CqiFormat {
    uint16_t code_mask;
    int number_shift;
    std::span<const CqiCode> codes;
};
constexpr CqiFormat kCqiFormats[] = {{0x1, 1, kFormat0Codes}, {0x3, 2, kFormat1Codes}};

void PublishCqi(ReportWriter& report) {
    const SnapshotView cqi = g_log_snapshot_store.View(Cqi::kCode);
    RowValue type = RowValue::NoData();
    RowValue number = RowValue::NoData();
    if (cqi.has_packet()) {
        // A position outside the 250 samples, or an unknown format, leaves
        // both attributes as the last report wrote them.
        type = number = RowValue::Keep();
        const uint8_t position = cqi.Get(Cqi::kPosition);
        if (position < Cqi::kMaxSamples) {
            const CqiReading reading =
                DecodeCqiSample(cqi.Get(Cqi::kFormat), cqi.Get(Cqi::Sample(position)));
            if (reading.type != nullptr) {
                type = RowValue::Text(reading.type);
                number = RowValue::Int(reading.number);
            }
        }
    }
    WriteRowValue(report, "hsdpa_cqi_type", type);
    WriteRowValue(report, "hsdpa_cqi_num", number);
}

// The selector names one of the four records; a selector past them names
// no record the snapshot holds, so the rate is reported as absent.
void PublishRate(ReportWriter& report) {
    const SnapshotView rate = g_log_snapshot_store.View(HsdpaRate::kCode);
    const uint8_t selector = rate.Get(HsdpaRate::kSelector);
    const bool known = rate.has_packet() && selector < HsdpaRate::kMaxRecords;
    WriteRowValue(report, "hsdpa_rate",
                  known ? RowValue::Int(rate.Get(HsdpaRate::Rate(selector))) : RowValue::NoData());
}

// The block error rate of the last record the count covers (the count cut
// to the eight records the snapshot holds); a count of 0 covers no record,
// so the rate is reported as absent.
void PublishBlockErrorRate(ReportWriter& report) {
    const SnapshotView channels = g_log_snapshot_store.View(TransportChannels::kCode);
    const size_t count = std::min<size_t>(channels.Get(TransportChannels::kRecordCount),
                                          TransportChannels::kMaxRecords);
    const bool known = channels.has_packet() && count != 0;
    WriteRowValue(report, "hsdpa_bler",
                  known ? RowValue::Int(static_cast<int32_t>(
                              channels.Get(TransportChannels::BlockErrorRate(count - 1))))
                        : RowValue::NoData());
}

constexpr Row<SnapshotView> kUeStateRows[] = {
    {"hspa_ue_state", Number<HspaUeState::kUeState>},
    {"hspa_irat_ch", Number<HspaUeState::kIratChannel>},
    {"hspa_irat_cm", Number<HspaUeState::kIratCm>},
    {"hspa_irat_carrier_rssi", Number<HspaUeState::kIratCarrierRssi>},
};

void PublishUeState(ReportWriter& report) {
    const SnapshotView state = g_log_snapshot_store.View(HspaUeState::kCode);
    WriteRows<SnapshotView>(report, state, kUeStateRows, state.has_packet());
}

}  // namespace

CqiReading DecodeCqiSample(uint8_t format, uint16_t sample) {
    if (format >= std::size(kCqiFormats)) return {nullptr, 0};
    const CqiFormat& f = kCqiFormats[format];
    const CqiCode* code = rt::RowOf(f.codes, sample & f.code_mask);
    if (code == nullptr) return {nullptr, 0};
    return {code->name, (sample >> f.number_shift) & code->number_mask};
}

void PublishHspaOpInfo(ReportWriter& report) {
    PublishCqi(report);
    report.NoData("hssch_code");
    PublishRate(report);
    PublishBlockErrorRate(report);
    PublishUeState(report);
}
