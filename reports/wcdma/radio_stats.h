// The radiostats report: the WCDMA RRC state from the snapshot of log code
// 0x4125, published to diag/status_utra.
#pragma once

#include <cstdint>

class PPSServer;

// Command handler of "radiostats"; arg is the TavoraContext.
void GetRadioStats(PPSServer* server, void* arg, uint64_t client_id, const char* msg,
                   const char* id, const char* dat);
