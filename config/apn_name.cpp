#include "config/apn_name.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/pps/pps_client.h"
#include "reports/lte/apn_info.h"
#include "service/pps_object_text.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"
#include "service/termination_point.h"

namespace {

constexpr const char* kSetName = "SetAPNName";
constexpr const char* kVerifyName = "VerifyAPNName";
constexpr const char* kConnectionControlPath = "/pps/services/cds/vesta/control?wait";
constexpr const char* kRequestId = "3323";
constexpr const char* kInternetApn = "internet";
constexpr size_t kAnswerBufferSize = 4096;

char answer_buffer[kAnswerBufferSize];

// Opened as a client of the service's server object: with no service
// serving it, the request would otherwise land in a plain object's
// attributes and its copy be read back as an answer.
int OpenConnectionControl(const char* caller) {
    int fd = pps_open_client(kConnectionControlPath, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Failed to open /pps/services/cds/vesta/control(%s)", caller,
              std::strerror(errno));
    }
    return fd;
}

// The request: msg, id and the object dat with name "internet" (and the
// new APN for a set), in one write.
void SendApnRequest(int fd, const char* msg, const char* apn) {
    ReportWriter request(fd);
    request.String("msg", msg);
    request.String("id", kRequestId);
    request.StartObject("dat");
    request.String("name", kInternetApn);
    if (apn != nullptr) request.String("APN", apn);
    request.EndObject();
    request.Write();
}

// Reads the answer into answer_buffer, waiting at most kApnAnswerTimeoutMs,
// and closes the control object. The number of bytes read (0 for none).
ssize_t ReadAnswerAndClose(int fd, const char* caller) {
    std::memset(answer_buffer, 0, sizeof answer_buffer);
    pollfd ready{fd, POLLIN, 0};
    int n;
    do {
        n = PollLettingTerminationIn(&ready, 1, kApnAnswerTimeoutMs);
    } while (n < 0 && errno == EINTR);
    ssize_t length = 0;
    if (n > 0) {
        length = pps_read(fd, answer_buffer, sizeof answer_buffer - 1);
    } else {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : no answer from the connection service within %d ms\n", caller,
              kApnAnswerTimeoutMs);
    }
    ::close(fd);
    return length;
}

// Logs the answer's err, if it has one; true when it had.
bool LogRefusal(pps_decoder_t* decoder, const char* caller) {
    int error = 0;
    if (pps_decoder_get_int(decoder, "err", &error) != PPS_DECODER_OK) return false;
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Failed to set APN name error %d\n", caller,
          error);
    return true;
}

// The service still holds our copy's name: show it on the screen again.
void WriteBackApnName() {
    const int32_t config_fd = g_tavora_context != nullptr ? g_tavora_context->config_fd : -1;
    if (config_fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : open /pps/services/radioctrl/modem0/diag/config(%s)", kVerifyName,
              std::strerror(errno));
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: failed to open %s for encoding\n", kVerifyName, kConfigObjectPath);
        return;
    }
    ReportWriter writeback(config_fd);
    writeback.String("apn_name", CurrentApnName);
    writeback.Write();
}

}  // namespace

void SetAPNName(const char* name) {
    if (name == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Invalid node_name(%s)", kSetName,
              std::strerror(errno));
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Invalid node_name\n", kSetName);
        return;
    }
    int fd = OpenConnectionControl(kSetName);
    if (fd < 0) return;
    SendApnRequest(fd, "set_apn_setting", name);
    if (ReadAnswerAndClose(fd, kSetName) > 0) CheckSetApnAnswerText(answer_buffer);
    // A refused change is verified too: the screen is then given the name in force.
    VerifyAPNName();
}

void VerifyAPNName() {
    int fd = OpenConnectionControl(kVerifyName);
    if (fd < 0) return;
    SendApnRequest(fd, "get_apn_setting", nullptr);
    if (ReadAnswerAndClose(fd, kVerifyName) <= 0) return;
    ReconcileApnAnswerText(answer_buffer);
}

void CheckSetApnAnswerText(char* text) {
    PpsObjectText answer(kSetName, text);
    if (answer.ok()) LogRefusal(answer.decoder(), kSetName);
}

void ReconcileApnAnswerText(char* text) {
    PpsObjectText answer(kVerifyName, text);
    if (!answer.ok()) return;
    pps_decoder_t* decoder = answer.decoder();
    if (LogRefusal(decoder, kVerifyName)) return;
    if (pps_decoder_push(decoder, "dat") != PPS_DECODER_OK) return;
    const char* apn = nullptr;
    int status = pps_decoder_get_string(decoder, "APN", &apn);
    if (status != PPS_DECODER_OK || apn == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_string for 'APN' : %d\n", kVerifyName,
              status);
    } else if (std::strcmp(apn, CurrentApnName) != 0) {
        // The service holds another name: the copy follows it.
        std::strncpy(CurrentApnName, apn, kCurrentApnNameSize - 1);
        CurrentApnName[kCurrentApnNameSize - 1] = '\0';
    } else {
        WriteBackApnName();
    }
    pps_decoder_pop(decoder);
}
