// The report handlers of the command table: the one place where each
// report joins the daemon.
#pragma once

#include "service/pps_server.h"

struct TavoraContext;

// Registers the handler of each report of reports/report_table.h, in its
// order (radionwinfo, radiostats, umtsopinfo, hspaopinfo, lteopinfo,
// bearer, tchtxpwr, 3gpp2info), each with the context as argument.
void RegisterReportHandlers(PPSServer& server, TavoraContext* context);
