// The 3gpp2info report: the CDMA identity of the device (pseudo-ESN,
// mobile firmware, protocol revision, slot cycle index, model) from the
// modem's misc information, published to diag/status_3gpp2.
#pragma once

#include <cstdint>

#include "qmi/vendor_requests.h"

class PPSServer;
struct TavoraContext;
class ReportWriter;

// The 3gpp2info report, written into `report` (context: the daemon's, or null).
void Publish3GPP2Info(ReportWriter& report, TavoraContext* context);
