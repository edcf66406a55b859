#include "reports/wcdma/tch_tx_pwr.h"

#include <algorithm>

#include "diaglog/log_snapshot_store.h"
#include "reports/report_rows.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::CarrierRssi;
using log_layout::TransportChannels;
using log_layout::TxPower;

// Another algorithm byte leaves the attribute as the last report wrote it.
RowValue PowerControlAlgorithm(const SnapshotView& power) {
    switch (power.Get(TxPower::kPowerControlAlgorithm)) {
        case 1:
            return RowValue::Text("PCA1");
        case 2:
            return RowValue::Text("PCA2");
        default:
            return RowValue::Keep();
    }
}

constexpr Row<SnapshotView> kTxPowerRows[] = {
    {"dch_tx_pwr", Number<TxPower::kTxPower>},
    {"dch_tx_pwr_step", Number<TxPower::kPowerControlStep>},
    {"dch_tx_pwr_algo", PowerControlAlgorithm},
};

void PublishTxPower(ReportWriter& report) {
    const SnapshotView power = g_log_snapshot_store.View(TxPower::kCode);
    WriteRows<SnapshotView>(report, power, kTxPowerRows, power.has_packet());
}

// One unnamed object per transport channel, its attributes numbered from 0.
constexpr const char* kBlerArray = "dch_bler";

// A count above eight is cut to the eight records the snapshot holds.
void PublishBlockErrorRates(ReportWriter& report) {
    const SnapshotView channels = g_log_snapshot_store.View(TransportChannels::kCode);
    if (!channels.has_packet()) {
        report.NoData(kBlerArray);
        return;
    }
    const size_t count = std::min<size_t>(channels.Get(TransportChannels::kRecordCount),
                                          TransportChannels::kMaxRecords);
    report.StartArray(kBlerArray);
    for (size_t k = 0; k < count; ++k) {
        const int n = static_cast<int>(k);
        report.StartObject();
        report.Int(Numbered("bler%1d", n),
                   static_cast<int32_t>(channels.Get(TransportChannels::BlockErrorRate(k))));
        report.Int(Numbered("tr_channel_id%1d", n), channels.Get(TransportChannels::ChannelId(k)));
        report.EndObject();
    }
    report.EndArray();
}

void PublishCarrierRssi(ReportWriter& report) {
    const SnapshotView rssi = g_log_snapshot_store.View(CarrierRssi::kCode);
    WriteRowValue(report, "dch_utra_rssi",
                  rssi.has_packet()
                      ? RowValue::Int(UtraRssiFromRawPower(rssi.Get(CarrierRssi::kRawPower)))
                      : RowValue::NoData());
}

}  // namespace

int16_t UtraRssiFromRawPower(int16_t raw) {
    // Integer division truncates toward zero: -513 gives -106, not -107.
    return static_cast<int16_t>((raw + 512) / 10 - 106);
}

void PublishTchTxPwr(ReportWriter& report) {
    PublishTxPower(report);
    PublishBlockErrorRates(report);
    PublishCarrierRssi(report);
    for (const char* name : {"dch_sir", "dch_sir_target", "dch_bler_target", "dch_avgcalls"})
        report.NotSupported(name);
}
