#include "reports/lte/bearer.h"

#include "diaglog/log_snapshot_store.h"
#include "reports/lte/qos_decoders.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::PdpQos;
using log_layout::RabId;

constexpr const char* kPacketSwitched = "PS";

void PublishQos(ReportWriter& report) {
    // One copy for every field, so a packet arriving meanwhile cannot mix
    // two profiles in one report.
    const SnapshotView qos = g_log_snapshot_store.View(PdpQos::kCode);
    if (!qos.has_packet()) {
        for (const char* name :
             {"rab_traffic_class", "rab_data_rate", "rab_domain", "rab_mbr", "rab_gbr", "rab_ber"})
            report.NoData(name);
        return;
    }
    report.String("rab_domain", kPacketSwitched);
    DecodeMeanThroughput(qos, "rab_data_rate", report);
    DecodeTrafficClass(qos, "rab_traffic_class", report);
    DecodeMaxBitRate(qos.Get(PdpQos::kMaxBitRateDl), "rab_mbr", report);
    DecodeMaxBitRate(qos.Get(PdpQos::kGuaranteedBitRateDl), "rab_gbr", report);
    DecodeResidualBer(qos.Get(PdpQos::kResidualBer), "rab_ber", report);
}

}  // namespace

std::optional<int32_t> SelectedRabId(const SnapshotView& rabs) {
    if (!rabs.has_packet()) return std::nullopt;
    // A selector past the 32 entries would point beyond the 205 bytes kept.
    const uint8_t selector = rabs.Get(RabId::kSelector);
    if (selector >= RabId::kMaxEntries) return std::nullopt;
    return rabs.Read(RabId::EntryRabId(selector));
}

void PublishBearer(ReportWriter& report) {
    PublishQos(report);
    report.IntOr("rab_id", SelectedRabId(g_log_snapshot_store.View(RabId::kCode)));
}
