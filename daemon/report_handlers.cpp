#include "daemon/report_handlers.h"

#include "reports/lte/bearer.h"
#include "reports/lte/get_3gpp2_info.h"
#include "reports/lte/lte_op_info.h"
#include "reports/lte/umts_op_info.h"
#include "reports/wcdma/hspa_op_info.h"
#include "reports/wcdma/radio_nw_info.h"
#include "reports/wcdma/radio_stats.h"
#include "reports/wcdma/tch_tx_pwr.h"
#include "service/tavora_context.h"

void RegisterReportHandlers(PPSServer& server, TavoraContext* context) {
    // Reports join here, one PPSAddCommand line each, in the order above.
    server.PPSAddCommand("radionwinfo", GetRadioNwInfo, context);
    server.PPSAddCommand("radiostats", GetRadioStats, context);
    server.PPSAddCommand("umtsopinfo", GetUmtsOpInfo, context);
    server.PPSAddCommand("hspaopinfo", GetHspaOpInfo, context);
    server.PPSAddCommand("lteopinfo", GetLteOpInfo, context);
    server.PPSAddCommand("bearer", GetBearerInfo, context);
    server.PPSAddCommand("tchtxpwr", GetTchTxPwr, context);
    server.PPSAddCommand("3gpp2info", Get3GPP2Info, context);
}
