// The tchtxpwr report: the state of a WCDMA dedicated channel (transmit
// power with its power-control step and algorithm, the block error rate of
// each transport channel, the received carrier power), from three log
// snapshots, published to diag/status_utra.
#pragma once

#include <cstdint>

class PPSServer;

// UTRA carrier RSSI in dBm from the raw received power of 0x4165.
int16_t UtraRssiFromRawPower(int16_t raw);

class ReportWriter;
// The report's attributes, in order.
void PublishTchTxPwr(ReportWriter& report);
