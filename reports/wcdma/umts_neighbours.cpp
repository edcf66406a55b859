#include "reports/wcdma/umts_neighbours.h"

#include <algorithm>

#include "qmi/vendor_requests.h"
#include "reports/wcdma/umts_meas_payload.h"
#include "service/report_writer.h"

namespace {

constexpr size_t kEntries = 6;
// Counts that stand for "no list".
constexpr uint8_t kNoIntraFreqList = 0xFF;
constexpr uint16_t kNoInterFreqList = 0xFFFF;
constexpr uint16_t kNoCellList = 0xFF;  // and above

// Entries n to 6 of a family without a cell.
void PublishEmptyEntries(ReportWriter& report, std::initializer_list<const char*> names, size_t n) {
    for (; n <= kEntries; ++n) {
        for (const char* name : names) report.NoData(Numbered(name, static_cast<int>(n)));
    }
}

// Every listed cell up to the list's capacity: a count of 7 or 8 publishes
// entries 7 and 8 as well.
void PublishIntraFrequency(ReportWriter& report, const rt::FieldReader& qmi) {
    const uint8_t raw_count = qmi.Get(umts_meas::kIntraFreqCount);
    const size_t count = raw_count == kNoIntraFreqList
                             ? 0
                             : std::min<size_t>(raw_count, umts_meas::kMaxIntraFreqCells);
    for (size_t i = 1; i <= count; ++i) {
        const umts_meas::TenByteCell cell = umts_meas::IntraFreqCell(i - 1);
        const int n = static_cast<int>(i);
        report.Int(Numbered("intra_psc%1d", n), qmi.Get(cell.Psc()));
        report.Int(Numbered("intra_ecno%1d", n), qmi.Get(cell.EcIo()));
        report.Int(Numbered("intra_rscp%1d", n), qmi.Get(cell.Rscp()));
    }
    PublishEmptyEntries(report, {"intra_psc%1d", "intra_ecno%1d", "intra_rscp%1d"}, count + 1);
}

// Cells of all blocks numbered on from one block to the next, six at most;
// block and cell counts are cut to the two blocks of eight cells the
// payload has room for.
void PublishInterFrequency(ReportWriter& report, const rt::FieldReader& qmi) {
    const uint16_t raw_blocks = qmi.Get(umts_meas::kInterFreqBlockCount);
    const size_t blocks = raw_blocks == kNoInterFreqList
                              ? 0
                              : std::min<size_t>(raw_blocks, umts_meas::kMaxInterFreqBlocks);
    size_t n = 1;
    for (size_t f = 0; f < blocks && n <= kEntries; ++f) {
        const uint16_t raw_cells = qmi.Get(umts_meas::InterFreqCellCount(f));
        const size_t cells =
            raw_cells >= kNoCellList
                ? 0
                : std::min<size_t>(raw_cells, umts_meas::kMaxInterFreqCellsPerBlock);
        for (size_t c = 0; c < cells && n <= kEntries; ++c, ++n) {
            const umts_meas::TenByteCell cell = umts_meas::InterFreqCell(f, c);
            const int entry = static_cast<int>(n);
            const int16_t ecio = qmi.Get(cell.EcIo());
            const int16_t rscp = qmi.Get(cell.Rscp());
            report.Int(Numbered("inter_psc%1d", entry), qmi.Get(cell.Psc()));
            report.Int(Numbered("inter_ecno%1d", entry), ecio);
            report.Int(Numbered("inter_rscp%1d", entry), rscp);
            report.IntOr(Numbered("inter_rssi%1d", entry), InterFrequencyRssi(rscp, ecio));
        }
    }
    PublishEmptyEntries(report, {"inter_psc%1d", "inter_ecno%1d", "inter_rscp%1d", "inter_rssi%1d"},
                        n);
}

// Every listed GSM cell whose ten bytes lie inside the response buffer.
void PublishGsm(ReportWriter& report, const rt::FieldReader& qmi) {
    const uint16_t raw_count = qmi.Get(umts_meas::kGsmCount);
    const size_t count =
        raw_count >= kNoCellList ? 0 : std::min<size_t>(raw_count, umts_meas::kMaxGsmCells);
    for (size_t i = 1; i <= count; ++i) {
        const umts_meas::GsmCell cell = umts_meas::GsmNeighbour(i - 1);
        const int n = static_cast<int>(i);
        report.String(Numbered("irat_system%1d", n), "GSM");
        report.Int(Numbered("irat_ch%1d", n), qmi.Get(cell.Arfcn()));
        report.Int(Numbered("irat_bsic%1d", n), qmi.Get(cell.Bsic()));
        report.Int(Numbered("irat_gsm_rssi%1d", n), qmi.Get(cell.Rssi()));
        report.NoData(Numbered("irat_cellid%1d", n));
    }
    PublishEmptyEntries(
        report,
        {"irat_system%1d", "irat_ch%1d", "irat_bsic%1d", "irat_gsm_rssi%1d", "irat_cellid%1d"},
        count + 1);
}

}  // namespace

std::optional<int> InterFrequencyRssi(int rscp, int ecio) {
    // The ratio of a cell measured with an Ec/Io of 0 is undefined: shown as absent.
    if (ecio == 0) return std::nullopt;
    return rscp / ecio;
}

void GetUmtsMeasurementInfoUsingQmi(ReportWriter& report) {
    RatMeasInfoResponse response;
    RequestRatMeasurements("GetUmtsMeasurementInfoUsingQmi", kRatTypeUmts, &response);
    PublishUmtsNeighbours(report, response);
}

void PublishUmtsNeighbours(ReportWriter& report, const RatMeasInfoResponse& response) {
    const rt::FieldReader qmi(response.bytes);
    if (!umts_meas::IsValid(qmi)) return;
    PublishIntraFrequency(report, qmi);
    PublishInterFrequency(report, qmi);
    PublishGsm(report, qmi);
}
