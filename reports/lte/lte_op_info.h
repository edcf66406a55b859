// The lteopinfo report: the LTE serving cell and its signal, the WCDMA,
// CDMA and GERAN neighbours seen from LTE, the RLC bearers and counters,
// the UE identity, the OMA-DM settings of the four LTE APN entries and the
// four packet-data connections, published to diag/status_eutra.
//
// Each publishing step below adds its attributes to the report in the
// report's order; the handler runs them one after the other.
#pragma once

#include <cstdint>
#include <functional>

#include "qmi/vendor_requests.h"

class PPSServer;
struct TavoraContext;
class ReportWriter;

// Resource blocks to MHz: 6, 15, 25, 50, 75, 100 give 1.4, 3, 5, 10, 15, 20;
// any other count gives 0.
double RbToBandwidthMhz(uint8_t resource_blocks);

// The serving cell (0xB0C2), its measurements (0xB179), lte_nummeas and the
// WCDMA (0xB19B) and CDMA (0xB185) neighbours.
void PublishLteCellsAndNeighbours(ReportWriter& report);
// Asks the modem for its GERAN neighbours (RAT type 4) and publishes them;
// a failed request is logged and adds nothing.
void publishLteIratGeranInfo(ReportWriter& report);
// The same over a response already received: lte_geran_bsicN and
// lte_geran_rssiN for the first seven present cells, then num_geran_meas;
// nothing for a response that is not a valid type-4 payload.
void PublishLteGeranNeighbours(ReportWriter& report, const RatMeasInfoResponse& response);
// lte_serv_cell_rssi from 0xB17F (version 3 only).
void PublishLteServCellRssi(ReportWriter& report);
// The UE identity (0xB0EE) and the identities derived from it with the
// serving cell's values.
void PublishLteUeIdentity(ReportWriter& report);

// Everything lteopinfo takes from the log packets, in the report's order,
// with `geran` publishing the GERAN neighbours in their place.
void PublishLteRadio(ReportWriter& report, const std::function<void(ReportWriter&)>& geran);

// The lteopinfo report, written into `report` (context: the daemon's, or null).
void PublishLteOpInfo(ReportWriter& report, TavoraContext* context);
