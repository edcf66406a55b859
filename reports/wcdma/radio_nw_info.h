// The radionwinfo report: the WCDMA serving cell with its identities and
// measurements, the active and monitored sets, the cell's barring and the
// reselection values of the active-set cells, published to diag/status_utra.
#pragma once

#include <cstdint>
#include <functional>

class PPSServer;
struct TavoraContext;

struct Plmn {
    int mcc;
    int mnc;
};

// MCC and MNC from the three BCD octets of a PLMN identity (3GPP TS
// 24.008): a high nibble 0xF in the second octet marks a two-digit MNC.
// Plain integers: leading zeros are not kept.
Plmn DecodePlmnBcd(uint8_t octet1, uint8_t octet2, uint8_t octet3);

class ReportWriter;

// The measurement half of the report: its attributes, and the active- and
// monitored-set counts that number the identities after it.
using RadioNwMeasurement =
    std::function<void(ReportWriter&, int* active_set_count, int* monitored_set_count)>;

// radionwinfo with `measure` as its measurement half: the handler's asks
// the modem (ComparePublishRadioNwInfo); a fuzz target's hands in bytes.
void PublishRadioNwInfoWith(ReportWriter& report, const RadioNwMeasurement& measure);

// The radionwinfo report, written into `report` (context: the daemon's, or null).
void PublishRadioNwInfo(ReportWriter& report, TavoraContext* context);
