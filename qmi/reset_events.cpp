#include "qmi/reset_events.h"

#include <unistd.h>

#include <mutex>

#include "qmi/vendor_client.h"
#include "service/report_writer.h"
#include "service/tavora_log.h"

namespace {

constexpr const char* kName = "radio_tavora_reset_event_rx_hdlr";

int32_t modem_state_fd = -1;

}  // namespace

void SetModemStateFd(int32_t fd) {
    std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
    modem_state_fd = fd;
}

int32_t ModemStateFd() {
    std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
    return modem_state_fd;
}

void radio_tavora_reset_event_rx_hdlr(int event, void* event_info, void* /*user_data*/) {
    if (event_info == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI SYS null event info received",
              kName);
        return;
    }
    // Only events 2 and 3 have a state text; the others publish nothing.
    const char* state = nullptr;
    switch (event) {
        case QMI_SYS_EVENT_SYNC_IND:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI_SYS_EVENT_SYNC_IND", kName);
            break;
        case QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND", kName);
            state = "modem is in reset mode";
            DropVendorQmiClient();
            break;
        case QMI_SYS_EVENT_MODEM_IN_SERVICE_IND:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI_SYS_EVENT_MODEM_IN_SERVICE_IND",
                  kName);
            state = "modem is out of reset mode";
            break;
        default:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s :  Unknown system event %d", kName,
                  event);
            break;
    }
    if (state == nullptr) return;
    // Report handlers write to the same object from the poll loop.
    std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
    ReportWriter modem(modem_state_fd);
    modem.String("modem_state", state);
    modem.Write();
}
