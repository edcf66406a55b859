#include "reports/wcdma/compare_publish_radio_nw_info.h"

#include <algorithm>
#include <optional>

#include "diaglog/log_snapshot_store.h"
#include "qmi/vendor_client.h"
#include "qmi/vendor_requests.h"
#include "reports/wcdma/umts_meas_payload.h"
#include "service/report_writer.h"

namespace {

using log_layout::ActiveSet;
using log_layout::MonitoredSet;

constexpr int kEntries = 6;

// The five attributes of one numbered entry, in the order they are written.
struct SetNames {
    const char* uarfcn;
    const char* sc;
    const char* cellid;
    const char* ecio;
    const char* rscp;
};
constexpr SetNames kActiveSetNames{"aset_arfcn%1d", "aset_sc%1d", "aset_cellid%1d", "aset_ecio%1d",
                                   "aset_rscp%1d"};
constexpr SetNames kMonitoredSetNames{"mset_uarfcn%1d", "mset_sc%1d", "mset_cellid%1d",
                                      "mset_ecio%1d", "mset_rscp%1d"};

struct LogCell {
    uint16_t uarfcn;
    uint16_t psc;
    uint32_t cellid;
};

// Entry n from a log cell, with the modem's measurement of it when there is one.
void PublishEntry(ReportWriter& report, const SetNames& names, int n, const LogCell& cell,
                  const rt::FieldReader& qmi, std::optional<umts_meas::TenByteCell> measured) {
    report.Int(Numbered(names.uarfcn, n), cell.uarfcn);
    report.Int(Numbered(names.sc, n), cell.psc);
    report.Int(Numbered(names.cellid, n), static_cast<int32_t>(cell.cellid));
    if (measured) {
        report.Double(Numbered(names.ecio, n), qmi.Get(measured->EcIo()) * -0.5);
        report.Double(Numbered(names.rscp, n), qmi.Get(measured->Rscp()) * -0.1);
    } else {
        report.NoData(Numbered(names.ecio, n));
        report.NoData(Numbered(names.rscp, n));
    }
}

// Entries n to 6 without a cell.
void PublishEmptyEntries(ReportWriter& report, const SetNames& names, int n) {
    for (; n <= kEntries; ++n) {
        for (const char* name : {names.uarfcn, names.sc, names.cellid, names.ecio, names.rscp})
            report.NoData(Numbered(name, n));
    }
}

// Written before the active set's cells, or after their placeholders.
constexpr const char* kServingUarfcn = "scell_uarfcn";

// Counts inside the payload and the snapshots are cut to the capacity of
// their lists, so no cell is read from outside its list whatever a count says.
size_t Capped(size_t count, size_t capacity) {
    return std::min(count, capacity);
}

void PublishActiveSet(ReportWriter& report, const rt::FieldReader& qmi, const SnapshotView& log,
                      int* active_set_count) {
    const uint16_t uarfcn = log.Get(ActiveSet::kUarfcn);
    report.Int(kServingUarfcn, uarfcn);
    const size_t qmi_cells =
        Capped(qmi.Get(umts_meas::kActiveSetCount), umts_meas::kMaxActiveSetCells);
    const size_t log_cells = Capped(log.Get(ActiveSet::kCellCount), ActiveSet::kMaxCells);
    auto log_cell = [&](size_t k) {
        return LogCell{uarfcn, log.Get(ActiveSet::CellPsc(k)), log.Get(ActiveSet::CellId(k))};
    };

    int n = 1;
    uint16_t matched[kEntries];
    size_t matched_count = 0;
    for (size_t j = 0; j < qmi_cells && n <= kEntries; ++j) {
        const umts_meas::TenByteCell measured = umts_meas::ActiveSetCell(j);
        for (size_t k = 0; k < log_cells && n <= kEntries; ++k) {
            if (qmi.Get(measured.Psc()) != log.Get(ActiveSet::CellPsc(k))) continue;
            PublishEntry(report, kActiveSetNames, n++, log_cell(k), qmi, measured);
            matched[matched_count++] = log.Get(ActiveSet::CellPsc(k));
        }
    }
    for (size_t k = 0; k < log_cells && n <= kEntries; ++k) {
        const uint16_t psc = log.Get(ActiveSet::CellPsc(k));
        if (psc == 0 || std::find(matched, matched + matched_count, psc) != matched + matched_count)
            continue;
        PublishEntry(report, kActiveSetNames, n++, log_cell(k), qmi, std::nullopt);
    }
    PublishEmptyEntries(report, kActiveSetNames, n);
    *active_set_count = n;
}

void PublishMonitoredSet(ReportWriter& report, const rt::FieldReader& qmi, const SnapshotView& log,
                         int* monitored_set_count) {
    const size_t log_blocks = Capped(log.Get(MonitoredSet::kBlockCount), MonitoredSet::kMaxBlocks);
    auto log_cells = [&](size_t f) {
        return Capped(log.Get(MonitoredSet::BlockCellCount(f)), MonitoredSet::kMaxCellsPerBlock);
    };
    auto log_cell = [&](size_t f, size_t d) {
        return LogCell{log.Get(MonitoredSet::BlockUarfcn(f)), log.Get(MonitoredSet::CellPsc(f, d)),
                       log.Get(MonitoredSet::CellId(f, d))};
    };

    int n = 1;
    LogCell matched[kEntries];
    size_t matched_count = 0;
    auto publish_matches = [&](size_t f, size_t measured_cells, auto measured_cell) {
        for (size_t c = 0; c < measured_cells && n <= kEntries; ++c) {
            const umts_meas::TenByteCell measured = measured_cell(c);
            for (size_t d = 0; d < log_cells(f) && n <= kEntries; ++d) {
                if (qmi.Get(measured.Psc()) != log.Get(MonitoredSet::CellPsc(f, d))) continue;
                PublishEntry(report, kMonitoredSetNames, n++, log_cell(f, d), qmi, measured);
                matched[matched_count++] = log_cell(f, d);
            }
        }
    };

    // Inter-frequency cells the modem measured on a frequency the log lists.
    const size_t qmi_blocks =
        Capped(qmi.Get(umts_meas::kInterFreqBlockCount), umts_meas::kMaxInterFreqBlocks);
    for (size_t f = 0; f < qmi_blocks && n <= kEntries; ++f) {
        const size_t qmi_cells = Capped(qmi.Get(umts_meas::InterFreqCellCount(f)),
                                        umts_meas::kMaxInterFreqCellsPerBlock);
        for (size_t F = 0; F < log_blocks && n <= kEntries; ++F) {
            if (qmi.Get(umts_meas::InterFreqUarfcn(f)) != log.Get(MonitoredSet::BlockUarfcn(F)) ||
                qmi_cells == 0)
                continue;
            publish_matches(F, qmi_cells, [f](size_t c) { return umts_meas::InterFreqCell(f, c); });
        }
    }
    // Intra-frequency cells: the log's block on the serving carrier.
    const size_t intra_cells =
        Capped(qmi.Get(umts_meas::kIntraFreqCount), umts_meas::kMaxIntraFreqCells);
    for (size_t F = 0; F < log_blocks && n <= kEntries; ++F) {
        if (log.Get(MonitoredSet::BlockUarfcn(F)) != qmi.Get(umts_meas::kServingUarfcn) ||
            intra_cells == 0)
            continue;
        publish_matches(F, intra_cells, umts_meas::IntraFreqCell);
    }
    // Cells only the log knows.
    for (size_t F = 0; F < log_blocks && n <= kEntries; ++F) {
        for (size_t d = 0; d < log_cells(F) && n <= kEntries; ++d) {
            const LogCell cell = log_cell(F, d);
            bool was_matched = std::any_of(matched, matched + matched_count, [&](const LogCell& m) {
                return m.uarfcn == cell.uarfcn && m.psc == cell.psc;
            });
            if (cell.psc == 0 || was_matched) continue;
            PublishEntry(report, kMonitoredSetNames, n++, cell, qmi, std::nullopt);
        }
    }
    PublishEmptyEntries(report, kMonitoredSetNames, n);
    *monitored_set_count = n;
}

}  // namespace

void ComparePublishRadioNwInfo(ReportWriter& report, int* active_set_count,
                               int* monitored_set_count) {
    radioTavoraInitializeQmi();
    RatMeasInfoResponse response;
    RequestRatMeasurements("ComparePublishRadioNwInfo", kRatTypeUmts, &response);
    MergeRadioNwInfo(report, response, active_set_count, monitored_set_count);
}

void MergeRadioNwInfo(ReportWriter& report, const RatMeasInfoResponse& response,
                      int* active_set_count, int* monitored_set_count) {
    const rt::FieldReader qmi(response.bytes);

    // The serving cell is active-set cell 0 of the measurement.
    if (umts_meas::IsValid(qmi) && qmi.Get(umts_meas::kActiveSetCount) != 0) {
        const umts_meas::TenByteCell serving = umts_meas::ActiveSetCell(0);
        report.Int("scell_sc", qmi.Get(serving.Psc()));
        report.Double("scell_ecio", qmi.Get(serving.EcIo()) * -0.5);
        report.Double("scell_rscp", qmi.Get(serving.Rscp()) * -0.1);
    }

    const SnapshotView active_set = g_log_snapshot_store.View(ActiveSet::kCode);
    if (active_set.has_packet()) {
        PublishActiveSet(report, qmi, active_set, active_set_count);
    } else {
        PublishEmptyEntries(report, kActiveSetNames, 1);
        report.NoData(kServingUarfcn);
    }

    const SnapshotView monitored_set = g_log_snapshot_store.View(MonitoredSet::kCode);
    if (monitored_set.has_packet()) {
        PublishMonitoredSet(report, qmi, monitored_set, monitored_set_count);
    } else {
        PublishEmptyEntries(report, kMonitoredSetNames, 1);
    }
}
