#include "qmi/reset_events.h"

#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "platform/pps/pps_encoder.h"
#include "qmi/vendor_client.h"
#include "service/tavora_log.h"

namespace {

constexpr const char* kName = "radio_tavora_reset_event_rx_hdlr";
constexpr size_t kStateTextSize = 64;

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
    char state[kStateTextSize] = {};
    pps_encoder_t encoder;
    pps_encoder_initialize(&encoder, false);
    switch (event) {
        case QMI_SYS_EVENT_SYNC_IND:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI_SYS_EVENT_SYNC_IND", kName);
            break;
        case QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity,
                  "%30s : QMI_SYS_EVENT_MODEM_OUT_OF_SERVICE_IND", kName);
            std::snprintf(state, sizeof state, "%s", "modem is in reset mode");
            DropVendorQmiClient();
            break;
        case QMI_SYS_EVENT_MODEM_IN_SERVICE_IND:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : QMI_SYS_EVENT_MODEM_IN_SERVICE_IND",
                  kName);
            std::snprintf(state, sizeof state, "%s", "modem is out of reset mode");
            break;
        default:
            slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s :  Unknown system event %d", kName,
                  event);
            break;
    }
    if (state[0] == '\0') {
        pps_encoder_cleanup(&encoder);
        return;
    }
    pps_encoder_add_string(&encoder, "modem_state", state);
    {
        // Report handlers write to the same object from the poll loop.
        std::lock_guard<std::recursive_mutex> hold(QmiStateMutex());
        const char* buffer = pps_encoder_buffer(&encoder);
        if (modem_state_fd >= 0 && buffer != nullptr) {
            ssize_t ignored = ::write(modem_state_fd, buffer, pps_encoder_length(&encoder));
            (void)ignored;
        }
    }
    pps_encoder_cleanup(&encoder);
}
