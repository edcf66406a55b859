#include "config/enabled_rats.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <span>

#include "platform/common/code_name.h"
#include "platform/pps/pps_client.h"
#include "platform/pps/pps_decoder.h"
#include "platform/qnx/strnicmp.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"

int32_t current_rat = -1;
int32_t skip_rats_state = -1;

namespace {

constexpr const char* kRadioControlPath = "/pps/services/radioctrl/modem0/control";
constexpr const char* kRequestId = "3323";

// The menu names, searched in this order.
using RatName = rt::CodeName<int32_t>;
constexpr RatName kRatNames[] = {
    {0, "NONE"},       {4, "CDMA_ONLY"}, {8, "EVDO_ONLY"},  {2, "WCDMA"},
    {12, "CDMA+EVDO"}, {16, "LTE_ONLY"}, {18, "WCDMA+LTE"}, {28, "CDMA1X+EVDO+LTE"},
};

constexpr int32_t kWcdmaOnly[] = {0, 2};
constexpr int32_t kWcdmaLte[] = {0, 2, 16, 18};
constexpr int32_t kCdmaEvdoLte[] = {0, 4, 8, 12, 16, 28};

// A device class: the hardware ID that selects it and the settings it allows.
struct RatDeviceClass {
    const char* hardware_id;
    std::span<const int32_t> settings;
};
const RatDeviceClass kDeviceClasses[] = {
    {"0x51c0f9e4", kWcdmaOnly},
    {"0x52c0f9e4", kWcdmaLte},
    {"0x53c0f9e4", kCdmaEvdoLte},
};

// The settings of the first class whose hardware ID matches ours in its
// first nine characters, regardless of case; none for any other device.
std::span<const int32_t> SupportedSettings() {
    for (const RatDeviceClass& device : kDeviceClasses) {
        if (strnicmp(hardware_id, device.hardware_id, kHardwareIdLength) == 0)
            return device.settings;
    }
    return {};
}

int32_t ContextFd(int32_t TavoraContext::*field) {
    return g_tavora_context != nullptr ? g_tavora_context->*field : -1;
}

char persist_buffer[4096];

}  // namespace

bool Is_Rat_Supported(int32_t setting) {
    for (int32_t supported : SupportedSettings())
        if (supported == setting) return true;
    return false;
}

void Enable_Rat(int32_t setting) {
    if (!Is_Rat_Supported(setting)) {
        skip_rats_state = 0;
        return;
    }
    int fd = pps_open(kRadioControlPath, O_RDWR);
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Failed to open /pps/services/radioctrl/modem0/control(%s)", "Enable_Rat",
              std::strerror(errno));
        skip_rats_state = 0;
        return;
    }
    {
        ReportWriter request(fd);
        request.String("msg", "configure_rats");
        request.String("id", kRequestId);
        request.StartObject("dat");
        request.Int("enabled_technologies", setting);
        request.EndObject();
        if (request.Write()) current_rat = setting;
    }
    // The modem's next report of the persistent status echoes this request.
    skip_rats_state = -1;
    ::close(fd);
}

void Update_Rat_Menu(int32_t setting) {
    skip_rats_state = -1;
    if (!Is_Rat_Supported(setting)) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: Not Supported Device Rat %d\n",
              "Update_Rat_Menu", setting);
        return;
    }
    const int32_t config_fd = ContextFd(&TavoraContext::config_fd);
    if (config_fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Failed to open /pps/services/radioctrl/modem0/diag/config(%s)",
              "Update_Rat_Menu", std::strerror(errno));
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Failed to open %s for encoding\n", "Update_Rat_Menu",
              kConfigObjectPath);
        skip_rats_state = 0;
        return;
    }
    ReportWriter menu(config_fd);
    if (const char* name = rt::NameOf(kRatNames, current_rat); name != nullptr)
        menu.String("enabled_rats", name);
    menu.Write();
    Enable_Rat(setting);
}

void GetRatsState() {
    constexpr const char* kName = "GetRatsState";
    const int32_t persist_fd = ContextFd(&TavoraContext::persist_fd);
    if (persist_fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Failed to opend /pps/services/radioctrl/modem0/status_persistent(%s)", kName,
              std::strerror(errno));
        return;
    }
    std::memset(persist_buffer, 0, sizeof persist_buffer);
    ssize_t n = ::read(persist_fd, persist_buffer, sizeof persist_buffer - 1);
    if (skip_rats_state == -1) {
        // The echo of our own request (or the first report after start).
        skip_rats_state = 0;
        return;
    }
    if (n <= 0) return;

    pps_decoder_t decoder;
    int status = pps_decoder_initialize(&decoder, nullptr);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_initialize : %d\n", kName, status);
        return;
    }
    int pushes = 0;
    int reported = 0;
    bool have_report = false;
    if ((status = pps_decoder_parse_pps_str(&decoder, persist_buffer)) != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_parse_pps_str : %d\n", kName, status);
    } else if ((status = pps_decoder_push(&decoder, nullptr)) != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_push : %d\n", kName, status);
    } else if (++pushes,
               (status = pps_decoder_push(&decoder, "configure_rats_state")) != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_push : %d\n", kName, status);
    } else if (++pushes, (status = pps_decoder_get_int(&decoder, "enabled_technologies",
                                                       &reported)) != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_string for 'enabled_technologies' : %d\n",
              kName, status);
    } else {
        have_report = true;
    }

    if (have_report && reported > 0 && reported != current_rat) {
        if (Is_Rat_Supported(reported)) {
            current_rat = reported;
            Update_Rat_Menu(reported);
        } else {
            // Put the daemon's own setting back on the menu and the modem.
            Update_Rat_Menu(current_rat);
        }
    }
    for (; pushes > 0; --pushes) pps_decoder_pop(&decoder);
    pps_decoder_cleanup(&decoder);
}

void GetRatsStateWatcher(PPSServer* /*server*/, void* /*arg*/, int /*fd*/) {
    GetRatsState();
}

void SelectRatByName(const char* name) {
    const RatName* row = rt::RowNamed(kRatNames, name);
    if (row == nullptr || row->code == current_rat) return;
    if (Is_Rat_Supported(row->code)) {
        Enable_Rat(row->code);
    } else {
        // Show and send the setting in force again.
        Update_Rat_Menu(current_rat);
    }
}

void ClearSkipAndGetRatsState() {
    skip_rats_state = 0;
    GetRatsState();
}

void ResetEnabledRatsForTest() {
    current_rat = -1;
    skip_rats_state = -1;
}
