// Cleanup: the handler of SIGHUP, SIGTERM and SIGINT; ends the process.
#include "daemon/cleanup.h"

#include <signal.h>

#include <cstdlib>

#include "config/shell_command.h"
#include "diaglog/dm_log_mask.h"
#include "diaglog/log_snapshot_store.h"
#include "platform/dmux/kora_dmc.h"
#include "platform/qmi_client/qmi_client.h"
#include "qmi/vendor_client.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"
#include "service/termination_point.h"

void Cleanup(int /*signal_number*/) {
    // Run once: a second termination signal must not start Cleanup again
    // from one of the waits below (a QMI release may wait for its answer).
    const sigset_t termination = TerminationSignals();
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    qmi_client_set_wait_signals(nullptr);
    // 1. The context's objects.
    if (g_tavora_context != nullptr) CloseTavoraContext(g_tavora_context);
    // 2. The DM client connection (client id 1, whether or not one is open).
    uint32_t dm_client_id = 1;
    kora_dmc_con_release(&dm_client_id);
    dm_client_connected = 0;
    // 3. The vendor QMI client and the QMI library.
    radioTavoraCleanQmi();
    // A shell tool still running (one that hangs) is not waited for: it is
    // left to end by itself, and said so.
    if (g_running_tool > 0)
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : WARN: Tavora: shell tool (pid %d) still running; left running", "Cleanup",
              static_cast<int>(g_running_tool));
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: radio_tavora PPS is terminated.",
          "Cleanup");
    // 5. The rlc_stats_entries arrays of 0xB087, then 0xB097.
    g_log_snapshot_store.FreeRlcStatsEntries();
    std::exit(0);
}
