// The daemon context: opening and closing its eight PPS objects, the
// hardware ID and the ENS value cleared at start.
#include "service/tavora_context.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/pps/pps_client.h"
#include "platform/qnx/waitfor.h"
#include "service/own_object.h"
#include "service/pps_object_text.h"
#include "service/report_writer.h"
#include "service/tavora_errors.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"

TavoraContext* g_tavora_context = nullptr;
char hardware_id[kHardwareIdLength + 1] = {};

namespace {

constexpr const char* kSetupName = "SetupTavoraContext";
constexpr const char* kHardwareIdName = "GetHardwareID";
constexpr const char* kPersistentStatusPath =
    "/pps/services/radioctrl/modem0/status_persistent?delta";
constexpr const char* kOmadmControlPath = "/pps/services/omadm/radio/control?wait";
constexpr const char* kDeviceInfoPath = "/pps/system/nvram/deviceinfo";
constexpr int kPersistentWaitMs = 10000;
constexpr int kPersistentPollMs = 1000;

// One object of the context: where its descriptor goes, its path and how
// it is opened. The first six are required, the last two optional.
struct ContextObject {
    int32_t TavoraContext::*field;
    const char* path;
    int flags;
};

constexpr int kStatusFlags = O_RDWR | O_CREAT | O_TRUNC;
constexpr mode_t kStatusMode = 0640;

constexpr ContextObject kRequiredObjects[] = {
    {&TavoraContext::eutra_fd,
     "/pps/services/radioctrl/modem0/diag/status_eutra?nopersist,critical", kStatusFlags},
    {&TavoraContext::utra_fd, "/pps/services/radioctrl/modem0/diag/status_utra?nopersist,critical",
     kStatusFlags},
    {&TavoraContext::geran_fd,
     "/pps/services/radioctrl/modem0/diag/status_geran?nopersist,critical", kStatusFlags},
    {&TavoraContext::cdma_fd, "/pps/services/radioctrl/modem0/diag/status_3gpp2?nopersist,critical",
     kStatusFlags},
    {&TavoraContext::data_fd, "/pps/services/radioctrl/modem0/diag/status_data?nopersist,critical",
     kStatusFlags},
    {&TavoraContext::config_fd, kConfigObjectPath, O_RDWR},
};

constexpr ContextObject kOptionalObjects[] = {
    {&TavoraContext::persist_fd, kPersistentStatusPath, O_RDWR},
    {&TavoraContext::omadm_fd, kOmadmControlPath, O_RDWR},
};

// Opens one object into its field and marks it close-on-exec; 0 or 22,
// with the failure logged.
int OpenContextObject(TavoraContext* context, const ContextObject& object) {
    // The status objects are the daemon's own: created so that only it (or
    // root) may write them, and refused when someone else made them.
    int fd = object.flags == kStatusFlags
                 ? OpenOwnObject(object.path, object.flags, kStatusMode, kSetupName)
                 : pps_open(object.path, object.flags, kStatusMode);
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: setupContext: open %s, error [%d]", kSetupName, object.path,
              errno);
        return kTavoraErrInvalid;
    }
    context->*object.field = fd;
    int flags = ::fcntl(fd, F_GETFD);
    if (flags < 0 || ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC) < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : ERROR: Tavora: setupContext: fcntl %s, error [%d]", kSetupName, object.path,
              errno);
        return kTavoraErrInvalid;
    }
    return 0;
}

// The settings are the screen's to write (its group's); an object any local
// user may write lets any of them change what the phone does.
void WarnIfConfigOpenToAll() {
    std::string name(kConfigObjectPath);
    name.erase(name.find('?') == std::string::npos ? name.size() : name.find('?'));
    struct stat info {};
    if (pps_stat(name.c_str(), &info) == 0 && (info.st_mode & S_IWOTH) != 0)
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : WARN: Tavora: %s may be written by any local user (mode %o)", kSetupName,
              name.c_str(), static_cast<unsigned>(info.st_mode & 07777));
}

}  // namespace

int SetupTavoraContext(TavoraContext* context) {
    *context = TavoraContext{};
    for (const ContextObject& object : kRequiredObjects) {
        if (OpenContextObject(context, object) != 0) return kTavoraErrInvalid;
    }
    WarnIfConfigOpenToAll();
    // The modem's persistent status may come up after us: give it a while.
    waitfor(kPersistentStatusPath, kPersistentWaitMs, kPersistentPollMs);
    for (const ContextObject& object : kOptionalObjects) OpenContextObject(context, object);
    GetHardwareID();
    return 0;
}

void GetHardwareID() {
    int fd = pps_open(kDeviceInfoPath, O_RDONLY);
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Failed to opend /pps/system/nvram/deviceinfo(%s)", kHardwareIdName,
              std::strerror(errno));
        return;
    }
    static char buffer[4096];
    std::memset(buffer, 0, sizeof buffer);
    ssize_t n = ::read(fd, buffer, sizeof buffer - 1);
    ::close(fd);
    if (n <= 0) return;

    PpsObjectText deviceinfo(kHardwareIdName, buffer);
    if (!deviceinfo.ok()) return;
    const char* value = nullptr;
    int status = pps_decoder_get_string(deviceinfo.decoder(), "HardwareID", &value);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_string to retrieve 'HardwareID' : %d\n",
              kHardwareIdName, status);
        return;
    }
    // Only the first nine characters tell the device class apart.
    std::strncpy(hardware_id, value, kHardwareIdLength);
    hardware_id[kHardwareIdLength] = '\0';
}

void ClearEnsValue(int32_t config_fd) {
    ReportWriter config(config_fd);
    config.DeleteAttribute("ens_value");
    config.Write();
}

void CloseTavoraContext(TavoraContext* context) {
    int32_t* fields[] = {&context->eutra_fd,   &context->utra_fd, &context->geran_fd,
                         &context->cdma_fd,    &context->data_fd, &context->config_fd,
                         &context->persist_fd, &context->omadm_fd};
    for (int32_t* field : fields) {
        if (*field != -1) {
            ::close(*field);
            *field = -1;
        }
    }
}
