#include "config/throttles.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "qmi/vendor_requests.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"

namespace {

struct StateSetting {
    const char* name;       // the action, as its log lines name it
    const char* attribute;  // in diag/config
    long set_msg_id;
    const char* set_failure;
    bool reads_back;  // 1x only: the state is read back after the set
};

constexpr StateSetting kImsTestMode{
    "SetIMSTestMode", "ims_enable", kQmiMsgSetImsTestMode,
    "%30s : Error in sending & processing set_ims_throttle_stats_qmi: Error = %d", false};
constexpr StateSetting kEvdoThrottle{
    "SetEVDOThrottle", "evdo_enable", kQmiMsgSetEvdoState,
    "%30s : Error in sending & processing SetEVDOThrottle_stats_qmi: Error = %d", false};
constexpr StateSetting k1xThrottle{
    "Set1XThrottle", "onex_enable", kQmiMsgSet1xState,
    "%30s : Error in sending & processing set_1x_throttle_stats_qmi: Error = %d", true};

// The refused change undone on the screen: the attribute as the integer
// opposite of what was asked. False when diag/config is not open, which
// also ends the action.
bool WriteBackRefused(const StateSetting& setting, uint8_t state) {
    const int32_t config_fd = g_tavora_context != nullptr ? g_tavora_context->config_fd : -1;
    if (config_fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : open /pps/services/radioctrl/modem0/diag/config(%s)", setting.name,
              std::strerror(errno));
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Failed to open %s for encoding\n",
              setting.name, kConfigObjectPath);
        return false;
    }
    ReportWriter writeback(config_fd);
    writeback.Int(setting.attribute, 1 - state);
    writeback.Write();
    return true;
}

void ApplyState(const StateSetting& setting, const char* value) {
    if (value == nullptr) return;
    const uint8_t state = std::strcmp(value, "1") == 0 ? 1 : 0;
    uint8_t response[kStateResponseSize] = {};
    int status = radio_tavora_vendor_set_evdo_1x_ims_state(response, setting.set_msg_id, state);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, setting.set_failure, setting.name, status);
        if (!WriteBackRefused(setting, state)) return;
    }
    if (!setting.reads_back) return;
    // The state read back is not used; the request keeps the modem's
    // exchange as the screen's change expects it.
    status = radio_tavora_vendor_get_evdo_1x_ims_state(response, kQmiMsgGet1xState);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Error in reading & processing get_1x_throttle_stats_qmi: Error = %d",
              setting.name, status);
    }
}

}  // namespace

void SetIMSTestMode(const char* value) {
    ApplyState(kImsTestMode, value);
}

void SetEVDOThrottle(const char* value) {
    ApplyState(kEvdoThrottle, value);
}

void Set1XThrottle(const char* value) {
    ApplyState(k1xThrottle, value);
}
