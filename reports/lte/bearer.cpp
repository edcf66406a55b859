#include "reports/lte/bearer.h"

#include "diaglog/log_snapshot_store.h"
#include "reports/lte/qos_decoders.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::PdpQos;
using log_layout::RabId;

constexpr const char* kPacketSwitched = "PS";

// The QoS attributes: an empty snapshot's placeholders come in another
// order than the values, so each name is a constant used by both.
constexpr const char* kTrafficClass = "rab_traffic_class";
constexpr const char* kDataRate = "rab_data_rate";
constexpr const char* kDomain = "rab_domain";
constexpr const char* kMaxBitRate = "rab_mbr";
constexpr const char* kGuaranteedBitRate = "rab_gbr";
constexpr const char* kResidualBer = "rab_ber";

void PublishQos(ReportWriter& report) {
    // One copy for every field, so a packet arriving meanwhile cannot mix
    // two profiles in one report.
    const SnapshotView qos = g_log_snapshot_store.View(PdpQos::kCode);
    if (!qos.has_packet()) {
        for (const char* name :
             {kTrafficClass, kDataRate, kDomain, kMaxBitRate, kGuaranteedBitRate, kResidualBer})
            report.NoData(name);
        return;
    }
    report.String(kDomain, kPacketSwitched);
    DecodeMeanThroughput(qos, kDataRate, report);
    DecodeTrafficClass(qos, kTrafficClass, report);
    DecodeMaxBitRate(qos.Get(PdpQos::kMaxBitRateDl), kMaxBitRate, report);
    DecodeMaxBitRate(qos.Get(PdpQos::kGuaranteedBitRateDl), kGuaranteedBitRate, report);
    DecodeResidualBer(qos.Get(PdpQos::kResidualBer), kResidualBer, report);
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
