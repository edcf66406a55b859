#include "reports/wcdma/umts_neighbours.h"

#include <algorithm>

#include "qmi/vendor_requests.h"
#include "reports/report_rows.h"
#include "reports/wcdma/umts_meas_payload.h"
#include "service/report_writer.h"

namespace {

constexpr size_t kEntries = 6;
// Counts that stand for "no list".
constexpr uint8_t kNoIntraFreqList = 0xFF;
constexpr uint16_t kNoInterFreqList = 0xFFFF;
constexpr uint16_t kNoCellList = 0xFF;  // and above

// A cell of the measurement: the response and where the cell sits in it.
template <class Cell>
struct MeasuredCell {
    const rt::FieldReader& qmi;
    Cell cell;
};
using TenByteEntry = MeasuredCell<umts_meas::TenByteCell>;
using GsmEntry = MeasuredCell<umts_meas::GsmCell>;

// Entries `from` to 6 of a family without a cell.
template <class Entry>
void PublishEmptyEntries(ReportWriter& report, std::span<const Row<Entry>> rows, size_t from) {
    for (size_t n = from; n <= kEntries; ++n)
        WriteNumberedAbsent<Entry>(report, static_cast<int>(n), rows);
}

RowValue Psc(const TenByteEntry& e) {
    return RowValue::Int(e.qmi.Get(e.cell.Psc()));
}
RowValue EcIo(const TenByteEntry& e) {
    return RowValue::Int(e.qmi.Get(e.cell.EcIo()));
}
RowValue Rscp(const TenByteEntry& e) {
    return RowValue::Int(e.qmi.Get(e.cell.Rscp()));
}

constexpr Row<TenByteEntry> kIntraFrequencyRows[] = {
    {"intra_psc%1d", Psc},
    {"intra_ecno%1d", EcIo},
    {"intra_rscp%1d", Rscp},
};

// Every listed cell up to the list's capacity: a count of 7 or 8 publishes
// entries 7 and 8 as well.
void PublishIntraFrequency(ReportWriter& report, const rt::FieldReader& qmi) {
    const uint8_t raw_count = qmi.Get(umts_meas::kIntraFreqCount);
    const size_t count = raw_count == kNoIntraFreqList
                             ? 0
                             : std::min<size_t>(raw_count, umts_meas::kMaxIntraFreqCells);
    for (size_t i = 1; i <= count; ++i)
        WriteNumberedRows<TenByteEntry>(report, static_cast<int>(i),
                                        TenByteEntry{qmi, umts_meas::IntraFreqCell(i - 1)},
                                        kIntraFrequencyRows);
    PublishEmptyEntries<TenByteEntry>(report, kIntraFrequencyRows, count + 1);
}

RowValue InterFrequencyRssiRow(const TenByteEntry& e) {
    return RowValue::IntOr(InterFrequencyRssi(e.qmi.Get(e.cell.Rscp()), e.qmi.Get(e.cell.EcIo())));
}

constexpr Row<TenByteEntry> kInterFrequencyRows[] = {
    {"inter_psc%1d", Psc},
    {"inter_ecno%1d", EcIo},
    {"inter_rscp%1d", Rscp},
    {"inter_rssi%1d", InterFrequencyRssiRow},
};

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
        for (size_t c = 0; c < cells && n <= kEntries; ++c, ++n)
            WriteNumberedRows<TenByteEntry>(report, static_cast<int>(n),
                                            TenByteEntry{qmi, umts_meas::InterFreqCell(f, c)},
                                            kInterFrequencyRows);
    }
    PublishEmptyEntries<TenByteEntry>(report, kInterFrequencyRows, n);
}

// A listed GSM cell has no cell id to show.
constexpr Row<GsmEntry> kGsmRows[] = {
    {"irat_system%1d", [](const GsmEntry&) { return RowValue::Text("GSM"); }},
    {"irat_ch%1d", [](const GsmEntry& e) { return RowValue::Int(e.qmi.Get(e.cell.Arfcn())); }},
    {"irat_bsic%1d", [](const GsmEntry& e) { return RowValue::Int(e.qmi.Get(e.cell.Bsic())); }},
    {"irat_gsm_rssi%1d", [](const GsmEntry& e) { return RowValue::Int(e.qmi.Get(e.cell.Rssi())); }},
    {"irat_cellid%1d", [](const GsmEntry&) { return RowValue::NoData(); }},
};

// Every listed GSM cell whose ten bytes lie inside the response buffer.
void PublishGsm(ReportWriter& report, const rt::FieldReader& qmi) {
    const uint16_t raw_count = qmi.Get(umts_meas::kGsmCount);
    const size_t count =
        raw_count >= kNoCellList ? 0 : std::min<size_t>(raw_count, umts_meas::kMaxGsmCells);
    for (size_t i = 1; i <= count; ++i)
        WriteNumberedRows<GsmEntry>(report, static_cast<int>(i),
                                    GsmEntry{qmi, umts_meas::GsmNeighbour(i - 1)}, kGsmRows);
    PublishEmptyEntries<GsmEntry>(report, kGsmRows, count + 1);
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
