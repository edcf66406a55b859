// The report handlers of the command table: the one place where each
// report joins the daemon.
#pragma once

#include "service/pps_server.h"

struct TavoraContext;

// Registers every report handler built so far, in this order: radionwinfo,
// radiostats, umtsopinfo, hspaopinfo, lteopinfo, bearer, tchtxpwr,
// 3gpp2info; each with the context as argument. A name without a handler
// is not registered and reaches Tavora_Default.
void RegisterReportHandlers(PPSServer& server, TavoraContext* context);
