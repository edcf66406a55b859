#include "reports/wcdma/radio_nw_info.h"

#include <optional>

#include "diaglog/log_snapshot_store.h"
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
constexpr LocationNames kActiveSetLocation{"aset_mcc%1d", "aset_mnc%1d", "aset_lac%1d",
                                           "aset_rac%1d"};
constexpr LocationNames kMonitoredSetLocation{"mset_mcc%1d", "mset_mnc%1d", "mset_lac%1d",
                                              "mset_rac%1d"};

struct Location {
    Plmn plmn;
    int lac;
    int rac;
};

// The serving location repeated for entries 1 to count - 1 of a set, the
// rest up to 6 without data; all six without data when there is none.
void PublishLocationFamily(ReportWriter& report, const LocationNames& names, int count,
                           const std::optional<Location>& location) {
    int n = 1;
    for (; location && n < count; ++n) {
        report.Int(Numbered(names.mcc, n), location->plmn.mcc);
        report.Int(Numbered(names.mnc, n), location->plmn.mnc);
        report.Int(Numbered(names.lac, n), location->lac);
        report.Int(Numbered(names.rac, n), location->rac);
    }
    for (; n <= kEntries; ++n) {
        for (const char* name : {names.mcc, names.mnc, names.lac, names.rac})
            report.NoData(Numbered(name, n));
    }
}

void PublishCellIdentity(ReportWriter& report) {
    const SnapshotView cell = g_log_snapshot_store.View(CellIdentity::kCode);
    if (!cell.has_packet()) {
        for (const char* name : {"cell_status", "scell_ura", "scell_cellid"}) report.NoData(name);
        return;
    }
    const bool not_barred = (cell.Get(CellIdentity::kAccessFlags) & 0x01) != 0;
    report.String("cell_status", not_barred ? "Cell Not Barred" : "Cell Barred");
    report.Int("scell_ura", cell.Get(CellIdentity::kUra));
    report.Int("scell_cellid", static_cast<int32_t>(cell.Get(CellIdentity::kCellId)));
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
        report.Int("scell_mcc", location->plmn.mcc);
        report.Int("scell_mnc", location->plmn.mnc);
        report.Int("scell_lac", location->lac);
        report.Int("scell_rac", location->rac);
    } else {
        for (const char* name : {"scell_mcc", "scell_mnc", "scell_lac", "scell_rac"})
            report.NoData(name);
    }
    PublishLocationFamily(report, kActiveSetLocation, active_set_count, location);
    PublishLocationFamily(report, kMonitoredSetLocation, monitored_set_count, location);
}

// Numbered by the active set, not by any count inside the 0x4005 packet:
// entry i reads the i-th cell of the packet. A count reaches 7 at most, so
// every entry read lies inside the snapshot.
void PublishReselection(ReportWriter& report, int active_set_count) {
    const SnapshotView reselection = g_log_snapshot_store.View(Reselection::kCode);
    int i = 1;
    for (; reselection.has_packet() && i < active_set_count && i <= kEntries; ++i) {
        report.Int(Numbered("squal%1d", i), reselection.Get(Reselection::Squal(i - 1)));
        report.Int(Numbered("srxlev%1d", i), reselection.Get(Reselection::Srxlev(i - 1)));
    }
    for (; i <= kEntries; ++i) {
        report.NoData(Numbered("squal%1d", i));
        report.NoData(Numbered("srxlev%1d", i));
    }
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

void PublishRadioNwIdentities(ReportWriter& report, int active_set_count, int monitored_set_count) {
    PublishCellIdentity(report);
    PublishLocation(report, active_set_count, monitored_set_count);
    PublishReselection(report, active_set_count);
}

void GetRadioNwInfo(PPSServer* server, void* arg, uint64_t client_id, const char* msg,
                    const char* id, const char* dat) {
    auto* context = static_cast<TavoraContext*>(arg);
    ReportWriter report(context != nullptr ? context->utra_fd : -1);
    int active_set_count = 1;
    int monitored_set_count = 1;
    ComparePublishRadioNwInfo(report, &active_set_count, &monitored_set_count);
    PublishRadioNwIdentities(report, active_set_count, monitored_set_count);
    report.WriteAndReply(server, {client_id, msg, id, dat});
}
