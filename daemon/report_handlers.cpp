#include "daemon/report_handlers.h"

#include "reports/lte/get_3gpp2_info.h"
#include "reports/wcdma/radio_stats.h"
#include "service/tavora_context.h"

void RegisterReportHandlers(PPSServer& server, TavoraContext* context) {
    // Reports join here, one PPSAddCommand line each, in the order above.
    server.PPSAddCommand("radiostats", GetRadioStats, context);
    server.PPSAddCommand("3gpp2info", Get3GPP2Info, context);
}
