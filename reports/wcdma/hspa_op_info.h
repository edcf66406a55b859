// The hspaopinfo report: one HSDPA CQI sample with its type, the HSDPA rate
// and block error rate, and the UE's HSPA state with three inter-RAT
// values, from four log snapshots, published to diag/status_utra.
#pragma once

#include <cstdint>

class PPSServer;

struct CqiReading {
    const char* type;  // null: the format is not one the report knows
    int number;
};
// A CQI sample decoded by its format byte (0 or 1).
CqiReading DecodeCqiSample(uint8_t format, uint16_t sample);

class ReportWriter;
// The report's attributes, in order.
void PublishHspaOpInfo(ReportWriter& report);
