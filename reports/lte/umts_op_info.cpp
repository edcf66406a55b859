#include "reports/lte/umts_op_info.h"

#include <optional>

#include "diaglog/log_snapshot_store.h"
#include "platform/common/code_name.h"
#include "reports/lte/pdn_info.h"
#include "reports/lte/qos_decoders.h"
#include "reports/report_rows.h"
#include "reports/wcdma/umts_neighbours.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::Drx;
using log_layout::GmmUpdateStatus;
using log_layout::IratCompressedMode;
using log_layout::MmUpdateStatus;
using log_layout::PdpQos;

constexpr rt::CodeName<uint8_t> kMmStatusTexts[] = {
    {0, "Updated"},
    {1, "Not Updated"},
    {2, "Roaming Not Allowed"},
    {3, "Location Area Not Allowed"},
};
constexpr rt::CodeName<uint8_t> kGmmStatusTexts[] = {
    {0, "GMM GU1 Updated"},
    {1, "GMM GU Not Updated"},
    {2, "GMM GU2 PLMN Not Allowed"},
    {3, "GMM GU3 Routing Area Not Allowed"},
};

// The status text, or "No data available!" for no packet or an unknown status.
void PublishUpdateStatus(ReportWriter& report, const char* name, uint16_t code,
                         rt::Field<uint8_t> field, const char* (*text_of)(uint8_t)) {
    const SnapshotView status = g_log_snapshot_store.View(code);
    const char* text = status.has_packet() ? text_of(status.Get(field)) : nullptr;
    if (text == nullptr) {
        report.NoData(name);
        return;
    }
    report.String(name, text);
}

// The members of apn1_pdp_qos in order: a plain number, or a decoded code.
struct QosMember {
    const char* name;
    rt::Field<uint8_t> field;
    std::optional<QosField> decoder;  // none: the code itself
};
constexpr QosMember Plain(const char* name, rt::Field<uint8_t> field) {
    return {name, field, std::nullopt};
}
constexpr QosMember Decoded(const char* name, rt::Field<uint8_t> field, QosField decoder) {
    return {name, field, decoder};
}
// The two-name rows (max SDU size, transfer delay) are named by their tables.
constexpr QosMember kQosMembers[] = {
    Plain("connection id", PdpQos::kConnectionId),
    Plain("delay class", PdpQos::kDelayClass),
    Plain("reliability class", PdpQos::kReliabilityClass),
    Decoded("peak throughput (octets)", PdpQos::kPeakThroughput, QosField::kPeakThroughput),
    Decoded("precedence class", PdpQos::kPrecedence, QosField::kPrecedence),
    Decoded("Mean throughput(octet/h)", PdpQos::kMeanThroughput, QosField::kMeanThroughput),
    Decoded("Traffic Class", PdpQos::kTrafficClass, QosField::kTrafficClass),
    Decoded("delivery order", PdpQos::kDeliveryOrder, QosField::kDeliveryOrder),
    Decoded("del of error SDU", PdpQos::kErroneousSduDelivery, QosField::kErroneousSduDelivery),
    Decoded("max SDU size", PdpQos::kMaxSduSize, QosField::kMaxSduSize),
    Decoded("UL max bit rate(kbps)", PdpQos::kMaxBitRateUl, QosField::kMaxBitRate),
    Decoded("DL max bit rate(kbps)", PdpQos::kMaxBitRateDl, QosField::kMaxBitRate),
    Decoded("residual ber", PdpQos::kResidualBer, QosField::kResidualBer),
    Decoded("SDU error ratio", PdpQos::kSduErrorRatio, QosField::kSduErrorRatio),
    Decoded("Transfer delay", PdpQos::kTransferDelay, QosField::kTransferDelay),
    Decoded("Traffic priority", PdpQos::kTrafficHandlingPriority,
            QosField::kTrafficHandlingPriority),
    Decoded("Guar Bit rate UL(kbps)", PdpQos::kGuaranteedBitRateUl, QosField::kMaxBitRate),
    Decoded("Guar Bit rate dL(kbps)", PdpQos::kGuaranteedBitRateDl, QosField::kMaxBitRate),
};
static_assert(std::size(kQosMembers) == 18);

}  // namespace

const char* MmUpdateStatusText(uint8_t status) {
    return rt::NameOf(kMmStatusTexts, status);
}

const char* GmmUpdateStatusText(uint8_t status) {
    return rt::NameOf(kGmmStatusTexts, status);
}

namespace {

// mm_reject, gmm_reject and drx.
void PublishUmtsMobility(ReportWriter& report) {
    PublishUpdateStatus(report, "mm_reject", MmUpdateStatus::kCode, MmUpdateStatus::kStatus,
                        MmUpdateStatusText);
    PublishUpdateStatus(report, "gmm_reject", GmmUpdateStatus::kCode, GmmUpdateStatus::kStatus,
                        GmmUpdateStatusText);
    const SnapshotView drx = g_log_snapshot_store.View(Drx::kCode);
    WriteRowValue(report, "drx",
                  drx.has_packet() ? RowValue::Int(drx.Get(Drx::kValue)) : RowValue::NoData());
}

// apn1_pdp_qos: an array of one unnamed object with the profile's 18
// members; nothing when 0x7136 holds no packet.
void PublishPdpQos(ReportWriter& report) {
    // One copy for all 18 members: they describe one profile.
    const SnapshotView qos = g_log_snapshot_store.View(PdpQos::kCode);
    if (!qos.has_packet()) return;
    report.StartArray("apn1_pdp_qos");
    report.StartObject();
    for (const QosMember& member : kQosMembers) {
        const uint8_t code = qos.Get(member.field);
        if (member.decoder) {
            AddQosAttribute(report, *member.decoder, code, member.name);
        } else {
            report.Int(member.name, code);
        }
    }
    report.EndObject();
    report.EndArray();
}

// irat_cm1 and t3212.
void PublishUmtsIratCm(ReportWriter& report) {
    const SnapshotView flag = g_log_snapshot_store.View(IratCompressedMode::kCode);
    WriteRowValue(report, "irat_cm1",
                  flag.has_packet()
                      ? RowValue::Text(flag.Get(IratCompressedMode::kFlag) != 0 ? "on" : "off")
                      : RowValue::NoData());
    report.NotSupported("t3212");
}

}  // namespace

void PublishUmtsOpInfoWith(ReportWriter& report, const UmtsOpInfoStep& pdn,
                           const UmtsOpInfoStep& neighbours) {
    PublishUmtsMobility(report);
    pdn(report);
    PublishPdpQos(report);
    neighbours(report);
    PublishUmtsIratCm(report);
}

void PublishUmtsOpInfo(ReportWriter& report, [[maybe_unused]] TavoraContext* context) {
    auto pdn = [](ReportWriter& r) {
        GetPDNInfo("internet", 1, r);
        GetPDNInfo("tethering", 2, r);
    };
    PublishUmtsOpInfoWith(report, pdn, GetUmtsMeasurementInfoUsingQmi);
}
