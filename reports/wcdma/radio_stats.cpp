#include "reports/wcdma/radio_stats.h"

#include "diaglog/log_snapshot_store.h"
#include "platform/common/code_name.h"
#include "reports/report_rows.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"

namespace {

using log_layout::RrcState;

constexpr rt::CodeName<uint8_t> kRrcStateNames[] = {
    {0, "RRC_Disconnected"}, {1, "RRC_Connecting"}, {2, "CELL_FACH"},  {3, "CELL_DCH"},
    {4, "CELL_PCH"},         {5, "URA_PCH"},        {0xFF, "Invalid"},
};

}  // namespace

void PublishRadioStats(ReportWriter& report, [[maybe_unused]] TavoraContext* context) {
    SnapshotView rrc = g_log_snapshot_store.View(RrcState::kCode);
    uint8_t state = rrc.Get(RrcState::kState);
    RowValue rrc_state = RowValue::NoData();
    RowValue conn_state = RowValue::NoData();
    if (rrc.has_packet()) {
        const char* name = rt::NameOf(kRrcStateNames, state);
        if (static_cast<uint8_t>(state - 2) > 252) {
            // 0, 1 and 0xFF: not connected, or no valid state.
            rrc_state = RowValue::Text(name);
        } else if (name != nullptr) {
            rrc_state = RowValue::Text("RRC_CONNECTED");
            conn_state = RowValue::Text(name);
        } else {
            // Codes 6 to 254 add neither state attribute: the object keeps the last ones.
            rrc_state = conn_state = RowValue::Keep();
        }
    }
    WriteRowValue(report, "rrc_state", rrc_state);
    WriteRowValue(report, "rrc_conn_state", conn_state);
    report.NoData("rrc_release");
    report.NoData("rrc_reject");
}
