// radio_tavora: start-up in a fixed order, then the poll loop until a
// termination signal ends the process through Cleanup.
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "config/config_delta.h"
#include "config/enabled_rats.h"
#include "daemon/cleanup.h"
#include "daemon/report_handlers.h"
#include "platform/qmi_client/qmi_client.h"
#include "service/pps_server.h"
#include "service/tavora_context.h"
#include "service/tavora_default.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"
#include "service/termination_point.h"

int main(int argc, char** argv) {
    constexpr const char* kName = "main";
    PPSServer* server = new PPSServer();

    const char* user = nullptr;
    int option;
    while ((option = ::getopt(argc, argv, "U:")) != -1) {
        if (option == 'U') {
            user = optarg;
        } else {
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : Tavora: Unknown command line option: %c", kName, option);
        }
    }

    // The context lives as long as the process.
    g_tavora_context = new TavoraContext();
    int status = SetupTavoraContext(g_tavora_context);
    if (status != 0) {
        delete server;
        return status;
    }
    ClearEnsValue(g_tavora_context->config_fd);

    status = server->pps_create_server_object(kControlServerPath);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: pps_create_server_object failed error: %d", kName, status);
        CloseTavoraContext(g_tavora_context);
        delete server;
        return 0;
    }

    server->PPSSetDefaultHandler(Tavora_Default, g_tavora_context);
    RegisterReportHandlers(*server, g_tavora_context);

    slogf(
        kTavoraLogOpcode, kTavoraLogSeverity,
        "%30s : Tavora: calling function to initialize callback function for user configure screen",
        kName);
    server->PPSAddFdWatcher(g_tavora_context->config_fd, TavoraConfigWatcher, nullptr);
    slogf(kTavoraLogOpcode, kTavoraLogSeverity,
          "%30s : Tavora: calling function to initialize callback function for configure rat state",
          kName);
    // Added even when persist_fd is -1: poll never reports it then.
    server->PPSAddFdWatcher(g_tavora_context->persist_fd, GetRatsStateWatcher, nullptr);

    if (user != nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: Dropping to user '%s'", kName,
              user);
        if (DropToUser(user) < 0) {
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : Tavora: Failed Dropping to user '%s'", kName, user);
            std::exit(1);
        }
    }

    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: tavora_pps started successfully.",
          kName);
    std::signal(SIGHUP, Cleanup);
    std::signal(SIGTERM, Cleanup);
    std::signal(SIGINT, Cleanup);
    // Cleanup takes locks and frees memory, so it must not interrupt code
    // holding them: the signals stay blocked (in every thread started from
    // here on too) except while PPSRun waits.
    const sigset_t termination = TerminationSignals();
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    // A QMI request lets them in while it waits for the modem's answer (up
    // to 2 s), so an exchange in progress does not hold up the end.
    qmi_client_set_wait_signals(&termination);

    status = server->PPSRun();
    CloseTavoraContext(g_tavora_context);
    delete server;
    return status;
}
