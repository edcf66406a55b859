// A report's attributes as rows of data, in the order of the report's table:
// the attribute's name, how its value comes from the source (a log
// snapshot, a QMI answer, ...) and what is written while the source holds
// nothing. WriteRows is the one path that writes each row, so each name is
// written once.
//
//   constexpr Row<SnapshotView> kRows[] = {
//       {"dch_tx_pwr", Number<TxPower::kTxPower>},
//       {"dch_tx_pwr_algo", AlgorithmName},
//   };
//   const SnapshotView power = g_log_snapshot_store.View(TxPower::kCode);
//   WriteRows(report, power, kRows, power.has_packet());
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "diaglog/snapshot_view.h"
#include "service/report_writer.h"

// What one row writes.
struct RowValue {
    enum class Kind : uint8_t {
        kKeep,    // nothing: the attribute stays as an earlier report wrote it
        kNoData,  // "No data available!"
        kInt,
        kDouble,
        kText,
    };
    Kind kind = Kind::kKeep;
    int32_t number = 0;
    double real = 0;
    const char* text = nullptr;

    static constexpr RowValue Keep() { return {}; }
    static constexpr RowValue NoData() { return {Kind::kNoData}; }
    static constexpr RowValue Int(int32_t value) { return {Kind::kInt, value}; }
    // The number, or "No data available!" without one.
    static constexpr RowValue IntOr(std::optional<int32_t> value) {
        return value ? Int(*value) : NoData();
    }
    static constexpr RowValue Double(double value) { return {Kind::kDouble, 0, value}; }
    static constexpr RowValue Text(const char* value) { return {Kind::kText, 0, 0, value}; }
};

template <class Source>
struct Row {
    const char* name;
    RowValue (*value)(const Source& source);
    RowValue absent = RowValue::NoData();  // written while the source holds nothing
};

// Writes one value under `name` (nothing for kKeep).
void WriteRowValue(ReportWriter& report, const char* name, const RowValue& value);

// Each row's value from `source` when `present`, else each row's `absent`.
template <class Source>
void WriteRows(ReportWriter& report, const Source& source, std::span<const Row<Source>> rows,
               bool present) {
    for (const Row<Source>& row : rows)
        WriteRowValue(report, row.name, present ? row.value(source) : row.absent);
}

// Entry n of a numbered family, each row's name a "%1d" format: its
// values from `source`, or each row's `absent` where there is no entry n.
template <class Source>
void WriteNumberedRows(ReportWriter& report, int n, const Source& source,
                       std::span<const Row<Source>> rows) {
    for (const Row<Source>& row : rows)
        WriteRowValue(report, Numbered(row.name, n), row.value(source));
}
template <class Source>
void WriteNumberedAbsent(ReportWriter& report, int n, std::span<const Row<Source>> rows) {
    for (const Row<Source>& row : rows) WriteRowValue(report, Numbered(row.name, n), row.absent);
}

// Entry `index` of a family of entries inside one snapshot.
struct SnapshotEntry {
    const SnapshotView& view;
    size_t index;
};

// The entry's field (kFieldOf(index)) as a PPS int.
template <auto kFieldOf>
RowValue EntryNumber(const SnapshotEntry& entry) {
    return RowValue::Int(static_cast<int32_t>(entry.view.Get(kFieldOf(entry.index))));
}

// A field as it stands, as a PPS int (unsigned 32-bit values wrap, as the
// 32-bit identities do).
template <auto kField, class Source>
RowValue Number(const Source& source) {
    return RowValue::Int(static_cast<int32_t>(source.Get(kField)));
}

// A row that writes nothing while the source holds a value.
template <class Source>
RowValue Keep(const Source&) {
    return RowValue::Keep();
}
