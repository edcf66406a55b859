#include "reports/lte/lte_op_info.h"

#include <algorithm>

#include "diaglog/log_snapshot_store.h"
#include "reports/lte/apn_info.h"
#include "reports/lte/lte_geran_meas_payload.h"
#include "reports/lte/pdn_info.h"
#include "reports/lte/rlc_stats.h"
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

constexpr uint32_t kRssiMaxRaw = 1600;

// GERAN cells published, at most.
constexpr int kMaxGeranCells = 7;
// WCDMA neighbours placeholders written when 0xB19B holds nothing.
constexpr int kUtranPlaceholders = 3;

// The APN entries asked of the OMA-DM client, and the leaves of each.
constexpr int kApnEntries = 4;
constexpr const char* kApnNodes[] = {"Id", "Ip", "Enabled", "Timer", "Name"};
// The packet-data connections, numbered 1 to 4 in this order.
constexpr const char* kPdnNames[] = {"carrier_ims", "carrier_admin", "internet", "carrier_apps"};

// Written "No data available!" when there is no valid identity.
constexpr const char* kUeIdentityNames[] = {
    "lte_ue_id",  "lte_mmegi", "lte_mmec", "lte_m_tmsi", "lte_s_tmsi",
    "lte_gummei", "lte_guti",  "lte_ecgi", "lte_enb_id", "lte_global_enb_id"};

// Signed, unsigned and wrapped 32-bit values all go out as PPS ints.
int32_t AsInt(uint32_t value) {
    return static_cast<int32_t>(value);
}

// Raw RSRP and RSRQ are in 1/16 dB above an offset; the division truncates
// toward zero before the offset is taken away (-8 gives -180, not -180.5).
double Sixteenths(int16_t raw, int offset) {
    return static_cast<double>(raw / 16 - offset);
}

void PublishServingCell(ReportWriter& report) {
    const SnapshotView cell = g_log_snapshot_store.View(LteServingCell::kCode);
    if (!cell.has_packet()) {
        for (const char* name :
             {"lte_mcc", "lte_mnc", "lte_cellid", "lte_tac", "lte_pci", "lte_tai", "lte_dl_freq",
              "lte_ul_freq", "lte_dl_bandwidth", "lte_ul_bandwidth"})
            report.NoData(name);
        report.String("lte_band", kDefaultBand);
        report.String("lte_category", kDefaultCategory);
        report.String("lte_bandwidth", kDefaultBandwidth);
        return;
    }
    const uint16_t mcc = cell.Get(LteServingCell::kMcc);
    const uint16_t mnc = cell.Get(LteServingCell::kMnc);
    const uint16_t tac = cell.Get(LteServingCell::kTac);
    report.Int("lte_mcc", mcc);
    report.Int("lte_mnc", mnc);
    report.Int("lte_cellid", AsInt(cell.Get(LteServingCell::kCellId)));
    report.Int("lte_tac", tac);
    report.Int("lte_pci", cell.Get(LteServingCell::kPci));
    // The sum of the three numbers, not their digits side by side.
    report.Int("lte_tai", AsInt(uint32_t{mcc} + tac + mnc));
    // 32-bit EARFCNs, whole: band 66's uplink EARFCNs pass 131000.
    report.Int("lte_dl_freq", AsInt(cell.Get(LteServingCell::kDlEarfcn)));
    report.Int("lte_ul_freq", AsInt(cell.Get(LteServingCell::kUlEarfcn)));
    report.Double("lte_dl_bandwidth", RbToBandwidthMhz(cell.Get(LteServingCell::kDlBandwidthRb)));
    report.Double("lte_ul_bandwidth", RbToBandwidthMhz(cell.Get(LteServingCell::kUlBandwidthRb)));
    report.Int("lte_band", AsInt(cell.Get(LteServingCell::kBand)));
    report.Int("lte_category", kUeCategory);
}

void PublishServingMeasurements(ReportWriter& report) {
    const SnapshotView meas = g_log_snapshot_store.View(LteServingMeasurements::kCode);
    if (!meas.has_packet()) {
        for (const char* name : {"lte_earfcn", "lte_phycellid", "lte_rsrp", "lte_rsrq"})
            report.NoData(name);
        return;
    }
    report.Int("lte_earfcn", AsInt(meas.Get(LteServingMeasurements::kEarfcn)));
    report.Int("lte_phycellid", meas.Get(LteServingMeasurements::kPci));
    report.Double("lte_rsrp", Sixteenths(meas.Get(LteServingMeasurements::kRawRsrp), 180));
    report.Double("lte_rsrq", Sixteenths(meas.Get(LteServingMeasurements::kRawRsrq), 30));
}

// num_utran_meas is the packet's count n; the entries written are cut to
// the 31 the 532-byte snapshot holds.
void PublishWcdmaNeighbours(ReportWriter& report) {
    const SnapshotView wcdma = g_log_snapshot_store.View(LteWcdmaNeighbours::kCode);
    if (!wcdma.has_packet()) {
        for (int i = 1; i <= kUtranPlaceholders; ++i) {
            report.NoData(Numbered("lte_utran_uarfcn%1d", i));
            report.NoData(Numbered("lte_utran_rscp%1d", i));
        }
        return;
    }
    const uint8_t n = wcdma.Get(LteWcdmaNeighbours::kEntryCount);
    const size_t count = std::min<size_t>(n, LteWcdmaNeighbours::kMaxEntries);
    const uint16_t uarfcn = wcdma.Get(LteWcdmaNeighbours::kUarfcn);
    report.Int("num_utran_meas", n);
    for (size_t i = 1; i <= count; ++i) {
        const int n = static_cast<int>(i);
        report.Int(Numbered("lte_utran_uarfcn%1d", n), uarfcn);
        report.Double(Numbered("lte_utran_rscp%1d", n), wcdma.Get(LteWcdmaNeighbours::Rscp(i)));
    }
}

void PublishCdmaNeighbours(ReportWriter& report) {
    const SnapshotView cdma = g_log_snapshot_store.View(LteCdmaNeighbours::kCode);
    for (size_t k = 0; k < LteCdmaNeighbours::kEntries; ++k) {
        const int n = static_cast<int>(k + 1);
        if (!cdma.has_packet()) {
            for (const char* name : {"lte_cdma_pilotpn%1d", "lte_cdma_rssi%1d", "lte_cdma_ecio%1d"})
                report.NoData(Numbered(name, n));
            continue;
        }
        report.Int(Numbered("lte_cdma_pilotpn%1d", n), cdma.Get(LteCdmaNeighbours::PilotPn(k)));
        report.Int(Numbered("lte_cdma_rssi%1d", n), cdma.Get(LteCdmaNeighbours::Rssi(k)));
        report.Int(Numbered("lte_cdma_ecio%1d", n), cdma.Get(LteCdmaNeighbours::Ecio(k)));
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

void PublishLteServCellRssi(ReportWriter& report) {
    const SnapshotView rssi = g_log_snapshot_store.View(LteServingRssi::kCode);
    if (!rssi.has_packet() || rssi.Get(kVersion) != LteServingRssi::kVersionValue) {
        report.NoData("lte_serv_cell_rssi");
        return;
    }
    const uint32_t v = (rssi.Get(LteServingRssi::kRssiWord) >> 10) & 0x3FFF;
    if (v > kRssiMaxRaw) {
        report.NoData("lte_serv_cell_rssi");
        return;
    }
    // -110 to -10 dBm in steps of 16 raw units.
    report.Int("lte_serv_cell_rssi", static_cast<int32_t>(v >> 4) - 110);
}

void PublishLteUeIdentity(ReportWriter& report) {
    const SnapshotView id = g_log_snapshot_store.View(LteUeIdentity::kCode);
    if (!id.has_packet() || id.Get(LteUeIdentity::kValid) != kIdentityValid) {
        for (const char* name : kUeIdentityNames) report.NoData(name);
        return;
    }
    switch (id.Get(LteUeIdentity::kIdentityType)) {
        case kIdentityImsi:
            report.String("lte_imsi_id", "imsi");
            break;
        case kIdentityGuti:
            report.String("lte_guti_id", "guti");
            break;
        default:
            break;
    }
    // The serving cell's values as they stand: an empty snapshot gives 0.
    const SnapshotView cell = g_log_snapshot_store.View(LteServingCell::kCode);
    const uint32_t mcc = cell.Get(LteServingCell::kMcc);
    const uint32_t mnc = cell.Get(LteServingCell::kMnc);
    const uint32_t cell_id = cell.Get(LteServingCell::kCellId);
    const uint32_t mmegi = id.Get(LteUeIdentity::kMmegi);
    const uint32_t mmec = id.Get(LteUeIdentity::kMmec);
    // The M-TMSI's three high bytes; its low byte is not read.
    const uint32_t m_tmsi =
        BigEndian24(id.Get(LteUeIdentity::MTmsiByte(0)), id.Get(LteUeIdentity::MTmsiByte(1)),
                    id.Get(LteUeIdentity::MTmsiByte(2)))
        << 8;
    const uint32_t plmn =
        BigEndian24(id.Get(LteUeIdentity::PlmnByte(0)), id.Get(LteUeIdentity::PlmnByte(1)),
                    id.Get(LteUeIdentity::PlmnByte(2)));
    // Sums in uint32_t wrap as the 32-bit identities do.
    const uint32_t gummei = mnc + mcc + mmegi + mmec;
    const uint32_t ecgi = cell_id + (plmn << 8);
    report.Int("lte_mmegi", AsInt(mmegi));
    report.Int("lte_mmec", AsInt(mmec));
    report.Int("lte_m_tmsi", AsInt(m_tmsi));
    report.Int("lte_s_tmsi", AsInt(m_tmsi + mcc));
    report.Int("lte_gummei", AsInt(gummei));
    report.Int("lte_guti", AsInt(m_tmsi + gummei));
    report.Int("lte_ecgi", AsInt(ecgi));
    report.Int("lte_enb_id", AsInt(cell_id));
    report.Int("lte_global_enb_id", AsInt(ecgi));
}

void GetLteOpInfo(PPSServer* server, void* arg, uint64_t client_id, const char* msg, const char* id,
                  const char* dat) {
    auto* context = static_cast<TavoraContext*>(arg);
    ReportWriter report(context != nullptr ? context->eutra_fd : -1);
    PublishLteCellsAndNeighbours(report);
    publishLteIratGeranInfo(report);
    // Each configuration step fills the bearer tables its status step reads.
    PublishRlcDlConfig(report);
    PublishRlcDlStatus(report);
    PublishRlcUlConfig(report);
    PublishRlcUlStatus(report);
    PublishLteServCellRssi(report);
    PublishLteUeIdentity(report);
    // Each APN leaf is its own small report, written at once.
    for (int entry = 1; entry <= kApnEntries; ++entry) {
        for (const char* node : kApnNodes) GetAPNInfo(context, node, entry);
    }
    for (int entry = 1; entry <= static_cast<int>(std::size(kPdnNames)); ++entry)
        GetPDNInfo(kPdnNames[entry - 1], entry, report);
    report.WriteAndReply(server, {client_id, msg, id, dat});
}
