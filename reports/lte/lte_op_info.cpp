#include "reports/lte/lte_op_info.h"

#include <algorithm>
#include <functional>

#include "diaglog/log_snapshot_store.h"
#include "reports/lte/apn_info.h"
#include "reports/lte/lte_geran_meas_payload.h"
#include "reports/lte/pdn_info.h"
#include "reports/lte/rlc_stats.h"
#include "reports/report_rows.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::kVersion;
using log_layout::LteCdmaNeighbours;
using log_layout::LteServingCell;
using log_layout::LteServingMeasurements;
using log_layout::LteServingRssi;
using log_layout::LteUeIdentity;
using log_layout::LteWcdmaNeighbours;

// What the screen shows for a cell the modem has not described.
constexpr const char* kDefaultBand = "13";
constexpr const char* kDefaultCategory = "3";
constexpr const char* kDefaultBandwidth = "10Mhz";
constexpr int32_t kUeCategory = 3;
constexpr const char* kMimoConfig = "2x2";

constexpr uint8_t kIdentityValid = 1;
constexpr uint8_t kIdentityImsi = 1;
constexpr uint8_t kIdentityGuti = 6;

// The RSSI runs from -110 to -10 dBm in steps of 16 raw units.
constexpr uint32_t kRssiMaxRaw = 1600;
constexpr uint32_t kRssiRawPerDb = 16;
constexpr int32_t kRssiFloorDbm = -110;

// GERAN cells published, at most.
constexpr int kMaxGeranCells = 7;
// WCDMA neighbours placeholders written when 0xB19B holds nothing.
constexpr int kUtranPlaceholders = 3;

// The APN entries asked of the OMA-DM client, and the leaves of each.
constexpr int kApnEntries = 4;
constexpr const char* kApnNodes[] = {"Id", "Ip", "Enabled", "Timer", "Name"};
// The packet-data connections, numbered 1 to 4 in this order.
constexpr const char* kPdnNames[] = {"carrier_ims", "carrier_admin", "internet", "carrier_apps"};

// Signed, unsigned and wrapped 32-bit values all go out as PPS ints.
int32_t AsInt(uint32_t value) {
    return static_cast<int32_t>(value);
}

// Raw RSRP and RSRQ are in 1/16 dB above an offset; the division truncates
// toward zero before the offset is taken away (-8 gives -180, not -180.5).
constexpr int kRsrpOffsetDb = 180;
constexpr int kRsrqOffsetDb = 30;
double Sixteenths(int16_t raw, int offset) {
    return static_cast<double>(raw / 16 - offset);
}

// The sum of the three numbers, not their digits side by side.
RowValue TrackingAreaIdentity(const SnapshotView& cell) {
    const uint32_t mcc = cell.Get(LteServingCell::kMcc);
    return RowValue::Int(
        AsInt(mcc + cell.Get(LteServingCell::kTac) + cell.Get(LteServingCell::kMnc)));
}
template <auto kRbField>
RowValue BandwidthMhz(const SnapshotView& cell) {
    return RowValue::Double(RbToBandwidthMhz(cell.Get(kRbField)));
}
RowValue UeCategory(const SnapshotView&) {
    return RowValue::Int(kUeCategory);
}

// Without a cell, band, category and bandwidth show the defaults; with one,
// lte_bandwidth is not written.
constexpr Row<SnapshotView> kServingCellRows[] = {
    {"lte_mcc", Number<LteServingCell::kMcc>},
    {"lte_mnc", Number<LteServingCell::kMnc>},
    {"lte_cellid", Number<LteServingCell::kCellId>},
    {"lte_tac", Number<LteServingCell::kTac>},
    {"lte_pci", Number<LteServingCell::kPci>},
    {"lte_tai", TrackingAreaIdentity},
    // 32-bit EARFCNs, whole: band 66's uplink EARFCNs pass 131000.
    {"lte_dl_freq", Number<LteServingCell::kDlEarfcn>},
    {"lte_ul_freq", Number<LteServingCell::kUlEarfcn>},
    {"lte_dl_bandwidth", BandwidthMhz<LteServingCell::kDlBandwidthRb>},
    {"lte_ul_bandwidth", BandwidthMhz<LteServingCell::kUlBandwidthRb>},
    {"lte_band", Number<LteServingCell::kBand>, RowValue::Text(kDefaultBand)},
    {"lte_category", UeCategory, RowValue::Text(kDefaultCategory)},
    {"lte_bandwidth", Keep<SnapshotView>, RowValue::Text(kDefaultBandwidth)},
};

void PublishServingCell(ReportWriter& report) {
    const SnapshotView cell = g_log_snapshot_store.View(LteServingCell::kCode);
    WriteRows<SnapshotView>(report, cell, kServingCellRows, cell.has_packet());
}

template <auto kRawField, int kOffset>
RowValue Decibels(const SnapshotView& meas) {
    return RowValue::Double(Sixteenths(meas.Get(kRawField), kOffset));
}

constexpr Row<SnapshotView> kServingMeasurementRows[] = {
    {"lte_earfcn", Number<LteServingMeasurements::kEarfcn>},
    {"lte_phycellid", Number<LteServingMeasurements::kPci>},
    {"lte_rsrp", Decibels<LteServingMeasurements::kRawRsrp, kRsrpOffsetDb>},
    {"lte_rsrq", Decibels<LteServingMeasurements::kRawRsrq, kRsrqOffsetDb>},
};

void PublishServingMeasurements(ReportWriter& report) {
    const SnapshotView meas = g_log_snapshot_store.View(LteServingMeasurements::kCode);
    WriteRows<SnapshotView>(report, meas, kServingMeasurementRows, meas.has_packet());
}

// Entry i of the WCDMA neighbours (numbered from 1): all on one UARFCN.
RowValue UtranUarfcn(const SnapshotEntry& entry) {
    return RowValue::Int(entry.view.Get(LteWcdmaNeighbours::kUarfcn));
}
RowValue UtranRscp(const SnapshotEntry& entry) {
    return RowValue::Double(entry.view.Get(LteWcdmaNeighbours::Rscp(entry.index)));
}
constexpr Row<SnapshotEntry> kUtranNeighbourRows[] = {
    {"lte_utran_uarfcn%1d", UtranUarfcn},
    {"lte_utran_rscp%1d", UtranRscp},
};

// num_utran_meas is the packet's count n; the entries written are cut to
// the 31 the 532-byte snapshot holds.
void PublishWcdmaNeighbours(ReportWriter& report) {
    const SnapshotView wcdma = g_log_snapshot_store.View(LteWcdmaNeighbours::kCode);
    if (!wcdma.has_packet()) {
        for (int i = 1; i <= kUtranPlaceholders; ++i)
            WriteNumberedAbsent<SnapshotEntry>(report, i, kUtranNeighbourRows);
        return;
    }
    const uint8_t n = wcdma.Get(LteWcdmaNeighbours::kEntryCount);
    const size_t count = std::min<size_t>(n, LteWcdmaNeighbours::kMaxEntries);
    report.Int("num_utran_meas", n);
    for (size_t i = 1; i <= count; ++i)
        WriteNumberedRows<SnapshotEntry>(report, static_cast<int>(i), {wcdma, i},
                                         kUtranNeighbourRows);
}

constexpr Row<SnapshotEntry> kCdmaNeighbourRows[] = {
    {"lte_cdma_pilotpn%1d", EntryNumber<LteCdmaNeighbours::PilotPn>},
    {"lte_cdma_rssi%1d", EntryNumber<LteCdmaNeighbours::Rssi>},
    {"lte_cdma_ecio%1d", EntryNumber<LteCdmaNeighbours::Ecio>},
};

void PublishCdmaNeighbours(ReportWriter& report) {
    const SnapshotView cdma = g_log_snapshot_store.View(LteCdmaNeighbours::kCode);
    for (size_t k = 0; k < LteCdmaNeighbours::kEntries; ++k) {
        const int n = static_cast<int>(k + 1);
        if (cdma.has_packet())
            WriteNumberedRows<SnapshotEntry>(report, n, {cdma, k}, kCdmaNeighbourRows);
        else
            WriteNumberedAbsent<SnapshotEntry>(report, n, kCdmaNeighbourRows);
    }
}

// Three bytes, most significant first.
uint32_t BigEndian24(uint8_t high, uint8_t middle, uint8_t low) {
    return uint32_t{high} << 16 | uint32_t{middle} << 8 | low;
}

}  // namespace

double RbToBandwidthMhz(uint8_t resource_blocks) {
    switch (resource_blocks) {
        case 6:
            return 1.4;
        case 15:
            return 3.0;
        case 25:
            return 5.0;
        case 50:
            return 10.0;
        case 75:
            return 15.0;
        case 100:
            return 20.0;
        default:
            return 0.0;
    }
}

void PublishLteCellsAndNeighbours(ReportWriter& report) {
    PublishServingCell(report);
    report.String("lte_mimo_config", kMimoConfig);
    PublishServingMeasurements(report);
    report.NoData("lte_nummeas");
    PublishWcdmaNeighbours(report);
    PublishCdmaNeighbours(report);
}

void publishLteIratGeranInfo(ReportWriter& report) {
    RatMeasInfoResponse response;
    if (RequestRatMeasurements("publishLteIratGeranInfo", kRatTypeLteGeran, &response) != 0) return;
    PublishLteGeranNeighbours(report, response);
}

// The walk is cut to the 13 groups the 1331-byte buffer holds and to the
// 8 cells a 77-byte group holds, whatever the counts say.
void PublishLteGeranNeighbours(ReportWriter& report, const RatMeasInfoResponse& response) {
    namespace geran = lte_geran_meas;
    const rt::FieldReader qmi(response.bytes);
    if (!geran::IsValid(qmi)) return;
    const size_t groups = std::min<size_t>(qmi.Get(geran::kGroupCount), geran::kMaxGroups);
    int n = 0;
    for (size_t g = 0; g < groups; ++g) {
        const size_t cells =
            std::min<size_t>(qmi.Get(geran::GroupCellCount(g)), geran::kMaxCellsPerGroup);
        for (size_t e = 0; e < cells && n < kMaxGeranCells; ++e) {
            const geran::Cell cell = geran::GroupCell(g, e);
            // An absent cell takes no number.
            if (qmi.Get(cell.Present()) == 0) continue;
            ++n;
            report.Int(Numbered("lte_geran_bsic%1d", n), qmi.Get(cell.Bsic()));
            // Tenths of a dBm, truncated toward zero: -955 gives -95.
            report.Double(Numbered("lte_geran_rssi%1d", n),
                          static_cast<double>(qmi.Get(cell.Rssi()) / 10));
        }
    }
    report.Int("num_geran_meas", n);
}

namespace {

RowValue ServingCellRssi(const SnapshotView& rssi) {
    if (rssi.Get(kVersion) != LteServingRssi::kVersionValue) return RowValue::NoData();
    const uint32_t raw = LteServingRssi::kRssi.Of(rssi.Get(LteServingRssi::kRssi.field));
    if (raw > kRssiMaxRaw) return RowValue::NoData();
    return RowValue::Int(static_cast<int32_t>(raw / kRssiRawPerDb) + kRssiFloorDbm);
}
constexpr Row<SnapshotView> kServingCellRssiRows[] = {{"lte_serv_cell_rssi", ServingCellRssi}};

// The UE identity with the serving cell's values as they stand (an empty
// cell snapshot gives 0). Sums in uint32_t wrap as the 32-bit identities do.
struct UeIdentity {
    uint8_t type;
    uint32_t mcc, mnc, cell_id, mmegi, mmec;
    uint32_t m_tmsi;  // its three high bytes; its low byte is not read
    uint32_t plmn;

    UeIdentity(const SnapshotView& id, const SnapshotView& cell)
        : type(id.Get(LteUeIdentity::kIdentityType)),
          mcc(cell.Get(LteServingCell::kMcc)),
          mnc(cell.Get(LteServingCell::kMnc)),
          cell_id(cell.Get(LteServingCell::kCellId)),
          mmegi(id.Get(LteUeIdentity::kMmegi)),
          mmec(id.Get(LteUeIdentity::kMmec)),
          m_tmsi(BigEndian24(id.Get(LteUeIdentity::MTmsiByte(0)),
                             id.Get(LteUeIdentity::MTmsiByte(1)),
                             id.Get(LteUeIdentity::MTmsiByte(2)))
                 << 8),
          plmn(BigEndian24(id.Get(LteUeIdentity::PlmnByte(0)), id.Get(LteUeIdentity::PlmnByte(1)),
                           id.Get(LteUeIdentity::PlmnByte(2)))) {}
    uint32_t gummei() const { return mnc + mcc + mmegi + mmec; }
    uint32_t ecgi() const { return cell_id + (plmn << 8); }
};

template <uint8_t kType>
RowValue TypeMark(const UeIdentity& ue) {
    if (ue.type != kType) return RowValue::Keep();
    return RowValue::Text(kType == kIdentityImsi ? "imsi" : "guti");
}
template <auto kValue>
RowValue Identity(const UeIdentity& ue) {
    return RowValue::Int(AsInt(kValue(ue)));
}

// Without a valid identity every row but the two type marks is "No data
// available!"; lte_ue_id is written only then.
constexpr Row<UeIdentity> kUeIdentityRows[] = {
    {"lte_ue_id", Keep<UeIdentity>},
    {"lte_imsi_id", TypeMark<kIdentityImsi>, RowValue::Keep()},
    {"lte_guti_id", TypeMark<kIdentityGuti>, RowValue::Keep()},
    {"lte_mmegi", Identity<[](const UeIdentity& u) { return u.mmegi; }>},
    {"lte_mmec", Identity<[](const UeIdentity& u) { return u.mmec; }>},
    {"lte_m_tmsi", Identity<[](const UeIdentity& u) { return u.m_tmsi; }>},
    {"lte_s_tmsi", Identity<[](const UeIdentity& u) { return u.m_tmsi + u.mcc; }>},
    {"lte_gummei", Identity<[](const UeIdentity& u) { return u.gummei(); }>},
    {"lte_guti", Identity<[](const UeIdentity& u) { return u.m_tmsi + u.gummei(); }>},
    {"lte_ecgi", Identity<[](const UeIdentity& u) { return u.ecgi(); }>},
    {"lte_enb_id", Identity<[](const UeIdentity& u) { return u.cell_id; }>},
    {"lte_global_enb_id", Identity<[](const UeIdentity& u) { return u.ecgi(); }>},
};

}  // namespace

void PublishLteServCellRssi(ReportWriter& report) {
    const SnapshotView rssi = g_log_snapshot_store.View(LteServingRssi::kCode);
    WriteRows<SnapshotView>(report, rssi, kServingCellRssiRows, rssi.has_packet());
}

void PublishLteUeIdentity(ReportWriter& report) {
    const SnapshotView id = g_log_snapshot_store.View(LteUeIdentity::kCode);
    const SnapshotView cell = g_log_snapshot_store.View(LteServingCell::kCode);
    const bool valid = id.has_packet() && id.Get(LteUeIdentity::kValid) == kIdentityValid;
    WriteRows<UeIdentity>(report, UeIdentity(id, cell), kUeIdentityRows, valid);
}

void PublishLteRadio(ReportWriter& report, const std::function<void(ReportWriter&)>& geran) {
    PublishLteCellsAndNeighbours(report);
    geran(report);
    // Each configuration step fills the bearer tables its status step reads.
    PublishRlcDlConfig(report);
    PublishRlcDlStatus(report);
    PublishRlcUlConfig(report);
    PublishRlcUlStatus(report);
    PublishLteServCellRssi(report);
    PublishLteUeIdentity(report);
}

void PublishLteOpInfo(ReportWriter& report, TavoraContext* context) {
    PublishLteRadio(report, publishLteIratGeranInfo);
    // Each APN leaf is its own small report, written at once.
    for (int entry = 1; entry <= kApnEntries; ++entry) {
        for (const char* node : kApnNodes) GetAPNInfo(context, node, entry);
    }
    for (int entry = 1; entry <= static_cast<int>(std::size(kPdnNames)); ++entry)
        GetPDNInfo(kPdnNames[entry - 1], entry, report);
}
