// ComparePublishRadioNwInfo: the measurement half of the radionwinfo
// report. It asks the modem for its UMTS measurements and merges them with
// the active set (0x4110) and the monitored set (0x4111) the log names: a
// cell gets signal values only when the modem's measurement and the log
// agree on it; cells only the log knows are published without them.
#pragma once

#include "qmi/vendor_requests.h"

class ReportWriter;

// Adds scell_sc/ecio/rscp (when measured), scell_uarfcn and the "aset_" and
// "mset_" families, entries 1 to 6. Each count becomes the next free entry
// number of its set (7 when all six were published); a count is left as it
// was when its log snapshot is empty.
void ComparePublishRadioNwInfo(ReportWriter& report, int* active_set_count,
                               int* monitored_set_count);

// The merge alone, over a response already received (all zero when the
// request failed).
void MergeRadioNwInfo(ReportWriter& report, const RatMeasInfoResponse& response,
                      int* active_set_count, int* monitored_set_count);
