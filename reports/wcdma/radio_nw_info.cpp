#include "reports/wcdma/radio_nw_info.h"

#include <optional>

#include "diaglog/log_snapshot_store.h"
#include "reports/report_rows.h"
#include "reports/wcdma/compare_publish_radio_nw_info.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::CellIdentity;
using log_layout::LocationIdentity;
using log_layout::Reselection;

constexpr int kEntries = 6;

struct LocationNames {
    const char* mcc;
    const char* mnc;
    const char* lac;
    const char* rac;
};
constexpr LocationNames kServingLocation{"scell_mcc", "scell_mnc", "scell_lac", "scell_rac"};
constexpr LocationNames kActiveSetLocation{"aset_mcc%1d", "aset_mnc%1d", "aset_lac%1d",
                                           "aset_rac%1d"};
constexpr LocationNames kMonitoredSetLocation{"mset_mcc%1d", "mset_mnc%1d", "mset_lac%1d",
                                              "mset_rac%1d"};

struct Location {
    Plmn plmn;
    int lac;
    int rac;
};

// One location's four values (entry n of a numbered family), or "No data
// available!" for each.
void PublishLocationEntry(ReportWriter& report, const LocationNames& names, int n,
                          const std::optional<Location>& location) {
    const Location known = location.value_or(Location{});
    const std::pair<const char*, int> values[] = {{names.mcc, known.plmn.mcc},
                                                  {names.mnc, known.plmn.mnc},
                                                  {names.lac, known.lac},
                                                  {names.rac, known.rac}};
    for (const auto& [format, value] : values)
        WriteRowValue(report, Numbered(format, n),
                      location ? RowValue::Int(value) : RowValue::NoData());
}

// The serving location repeated for entries 1 to count - 1 of a set, the
// rest up to 6 without data; all six without data when there is none.
void PublishLocationFamily(ReportWriter& report, const LocationNames& names, int count,
                           const std::optional<Location>& location) {
    for (int n = 1; n <= kEntries; ++n)
        PublishLocationEntry(report, names, n, n < count ? location : std::nullopt);
}

RowValue CellStatus(const SnapshotView& cell) {
    const bool not_barred = (cell.Get(CellIdentity::kAccessFlags) & CellIdentity::kNotBarred) != 0;
    return RowValue::Text(not_barred ? "Cell Not Barred" : "Cell Barred");
}

constexpr Row<SnapshotView> kCellIdentityRows[] = {
    {"cell_status", CellStatus},
    {"scell_ura", Number<CellIdentity::kUra>},
    {"scell_cellid", Number<CellIdentity::kCellId>},
};

void PublishCellIdentity(ReportWriter& report) {
    const SnapshotView cell = g_log_snapshot_store.View(CellIdentity::kCode);
    WriteRows<SnapshotView>(report, cell, kCellIdentityRows, cell.has_packet());
}

void PublishLocation(ReportWriter& report, int active_set_count, int monitored_set_count) {
    const SnapshotView snapshot = g_log_snapshot_store.View(LocationIdentity::kCode);
    std::optional<Location> location;
    if (snapshot.has_packet()) {
        location =
            Location{DecodePlmnBcd(snapshot.Get(LocationIdentity::PlmnOctet(0)),
                                   snapshot.Get(LocationIdentity::PlmnOctet(1)),
                                   snapshot.Get(LocationIdentity::PlmnOctet(2))),
                     snapshot.Get(LocationIdentity::kLac), snapshot.Get(LocationIdentity::kRac)};
    }
    PublishLocationEntry(report, kServingLocation, 0, location);
    PublishLocationFamily(report, kActiveSetLocation, active_set_count, location);
    PublishLocationFamily(report, kMonitoredSetLocation, monitored_set_count, location);
}

// Numbered by the active set, not by any count inside the 0x4005 packet:
// entry i reads the i-th cell of the packet. A count reaches 7 at most, so
// every entry read lies inside the snapshot.
constexpr Row<SnapshotEntry> kReselectionRows[] = {
    {"squal%1d", EntryNumber<Reselection::Squal>},
    {"srxlev%1d", EntryNumber<Reselection::Srxlev>},
};

void PublishReselection(ReportWriter& report, int active_set_count) {
    const SnapshotView reselection = g_log_snapshot_store.View(Reselection::kCode);
    int i = 1;
    for (; reselection.has_packet() && i < active_set_count && i <= kEntries; ++i)
        WriteNumberedRows<SnapshotEntry>(report, i, {reselection, static_cast<size_t>(i - 1)},
                                         kReselectionRows);
    for (; i <= kEntries; ++i) WriteNumberedAbsent<SnapshotEntry>(report, i, kReselectionRows);
}

}  // namespace

Plmn DecodePlmnBcd(uint8_t octet1, uint8_t octet2, uint8_t octet3) {
    auto low = [](uint8_t octet) { return octet & 0x0F; };
    auto high = [](uint8_t octet) { return octet >> 4; };
    Plmn plmn;
    plmn.mcc = 100 * low(octet1) + 10 * high(octet1) + low(octet2);
    if (high(octet2) == 0x0F) {
        plmn.mnc = 10 * low(octet3) + high(octet3);
    } else {
        plmn.mnc = 100 * low(octet3) + 10 * high(octet3) + high(octet2);
    }
    return plmn;
}

void PublishRadioNwInfoWith(ReportWriter& report, const RadioNwMeasurement& measure) {
    int active_set_count = 1;
    int monitored_set_count = 1;
    measure(report, &active_set_count, &monitored_set_count);
    PublishCellIdentity(report);
    PublishLocation(report, active_set_count, monitored_set_count);
    PublishReselection(report, active_set_count);
}

void PublishRadioNwInfo(ReportWriter& report, [[maybe_unused]] TavoraContext* context) {
    PublishRadioNwInfoWith(report, ComparePublishRadioNwInfo);
}
