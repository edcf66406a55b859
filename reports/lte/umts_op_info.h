// The umtsopinfo report: the last MM and GMM update results, the DRX
// cycle, the "internet" and "tethering" packet-data connections, the QoS
// profile of the first PDP context, the UMTS neighbours the modem measures
// and the inter-RAT compressed-mode flag, published to diag/status_utra.
//
// Each publishing step adds its attributes in the report's order; the
// handler runs them one after the other with the PDN reader and the
// neighbour measurement in between.
#pragma once

#include <cstdint>
#include <functional>

class PPSServer;
struct TavoraContext;
class ReportWriter;

// The texts of the MM (0x7131) and GMM (0x7130) update statuses; null for a
// status without one.
const char* MmUpdateStatusText(uint8_t status);
const char* GmmUpdateStatusText(uint8_t status);

// umtsopinfo in its order, with `pdn` publishing the two packet-data
// connections and `neighbours` the measured neighbours in their places:
// the handler's read the services and ask the modem; a fuzz target's hand
// in bytes.
using UmtsOpInfoStep = std::function<void(ReportWriter&)>;
void PublishUmtsOpInfoWith(ReportWriter& report, const UmtsOpInfoStep& pdn,
                           const UmtsOpInfoStep& neighbours);

// The umtsopinfo report, written into `report` (context: the daemon's, or null).
void PublishUmtsOpInfo(ReportWriter& report, TavoraContext* context);
