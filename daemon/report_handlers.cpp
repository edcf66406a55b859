#include "daemon/report_handlers.h"

#include "reports/report_table.h"
#include "service/pps_server.h"

void RegisterReportHandlers(PPSServer& server, TavoraContext* context) {
    for (size_t i = 0; i < Reports().size(); ++i)
        server.PPSAddCommand(Reports()[i].name, ReportHandlerAt(i), context);
}
