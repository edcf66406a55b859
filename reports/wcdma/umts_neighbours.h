// GetUmtsMeasurementInfoUsingQmi: the modem's UMTS neighbour measurements
// for the umtsopinfo report: intra-frequency, inter-frequency and GSM
// cells, raw values as the modem gives them, from the RAT measurement
// response alone. It does not open the QMI channel: without an open
// client the request fails and nothing is published.
#pragma once

#include <optional>

#include "qmi/vendor_requests.h"

class ReportWriter;

// Adds the "intra_", "inter_" and "irat_" families at the writer's level.
void GetUmtsMeasurementInfoUsingQmi(ReportWriter& report);
// The same over a response already received.
void PublishUmtsNeighbours(ReportWriter& report, const RatMeasInfoResponse& response);

// RSCP over Ec/Io, truncated toward zero; none when Ec/Io is 0.
std::optional<int> InterFrequencyRssi(int rscp, int ecio);
