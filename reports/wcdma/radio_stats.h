// The radiostats report: the WCDMA RRC state from the snapshot of log code
// 0x4125, published to diag/status_utra.
#pragma once

#include <cstdint>

class PPSServer;
struct TavoraContext;
class ReportWriter;

// The radiostats report, written into `report` (context: the daemon's, or null).
void PublishRadioStats(ReportWriter& report, TavoraContext* context);
