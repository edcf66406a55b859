// The 3gpp2info report: the CDMA identity of the device (pseudo-ESN,
// mobile firmware, protocol revision, slot cycle index, model) from the
// modem's misc information, published to diag/status_3gpp2.
#pragma once

#include <cstdint>

#include "qmi/vendor_requests.h"

class PPSServer;

// Command handler of "3gpp2info"; arg is the TavoraContext.
void Get3GPP2Info(PPSServer* server, void* arg, uint64_t client_id, const char* msg, const char* id,
                  const char* dat);
