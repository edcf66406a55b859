// The OMA-DM leaf reader: one request-and-answer exchange on the OMA-DM
// control object per leaf, its answer published to diag/status_eutra.
#include "reports/lte/apn_info.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/pps/pps_client.h"
#include "service/pps_object_text.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"
#include "service/termination_point.h"

char CurrentApnName[kCurrentApnNameSize] = "vzwinternet";

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kApnInfoName = "GetAPNInfo";
constexpr const char* kLeafRequestId = "3323";
constexpr const char* kLeafPathFormat = "./ManagedObjects/ConnMO/LTE/APN/%1d/Setting/%s";
constexpr int kInternetApnEntry = 3;
constexpr size_t kExchangeBufferSize = 4096;
constexpr size_t kAttributeNameSize = 29;

char exchange_buffer[kExchangeBufferSize];

// Answers the OMA-DM service still owes for requests that timed out, and
// when the first of them timed out. The service answers in order, so while
// any are owed the next answer read would belong to an older leaf.
int owed_answers = 0;
Clock::time_point owed_since;

// Reads what has come in meanwhile (late answers, messages to every client
// of the object) without waiting; each read pays one owed answer. At most
// kMaxDrained messages a call, so a service that keeps writing cannot hold
// the loop here.
void DrainLateAnswers(int fd) {
    constexpr int kMaxDrained = 64;
    pollfd ready{fd, POLLIN, 0};
    for (int drained = 0;
         drained<kMaxDrained&& ::poll(&ready, 1, 0)> 0 && (ready.revents & POLLIN) != 0;
         ++drained) {
        if (pps_read(fd, exchange_buffer, kExchangeBufferSize - 1) <= 0) break;
        if (owed_answers > 0) --owed_answers;
    }
    if (owed_answers > 0 &&
        Clock::now() - owed_since > std::chrono::milliseconds(kOmadmOwedAnswersForgetMs)) {
        owed_answers = 0;  // answers that never came: start asking again
    }
}

// True when the answer is there to read within the bound. A termination
// signal ends the daemon during the wait.
bool WaitForAnswer(int fd) {
    pollfd ready{fd, POLLIN, 0};
    int n;
    do {
        n = PollLettingTerminationIn(&ready, 1, kOmadmAnswerTimeoutMs);
    } while (n < 0 && errno == EINTR);
    return n > 0;
}

void SendLeafRequest(int fd, const char* node, int entry) {
    std::memset(exchange_buffer, 0, kExchangeBufferSize);
    std::snprintf(exchange_buffer, kExchangeBufferSize, kLeafPathFormat, entry, node);
    ReportWriter request(fd);
    request.String("msg", "get_leaf_node");
    request.String("id", kLeafRequestId);
    request.String("dat", exchange_buffer);
    request.Write();
}

// Entry 3's Name is the "internet" APN.
void RememberInternetApn(const char* node, int entry, const char* value) {
    if (entry != kInternetApnEntry || std::strcmp(node, "Name") != 0) return;
    if (std::strcmp(value, CurrentApnName) == 0) return;
    std::strncpy(CurrentApnName, value, kCurrentApnNameSize - 1);
    CurrentApnName[kCurrentApnNameSize - 1] = '\0';
}

// The answer's leaf value, or "No data available!" for an error answer or
// one without a readable value.
void AddLeafAnswer(pps_decoder_t* decoder, const char* node, int entry, ReportWriter& report) {
    char attribute[kAttributeNameSize];
    std::snprintf(attribute, sizeof attribute, "lte_apn%1d_%s", entry, node);
    int error = 0;
    if (pps_decoder_get_int(decoder, "err", &error) == PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Failed to get node %s error %d\n",
              kApnInfoName, node, error);
        report.NoData(attribute);
        return;
    }
    int status = pps_decoder_push(decoder, "dat");
    if (status != PPS_DECODER_OK) {
        LogDecoderPushError(kApnInfoName, status);
        report.NoData(attribute);
        return;
    }
    const char* value = nullptr;
    status = pps_decoder_get_string(decoder, "value", &value);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Tavora: Error in pps_decoder_get_string for 'value' : %d\n", kApnInfoName,
              status);
        report.NoData(attribute);
    } else {
        report.String(attribute, value);
        RememberInternetApn(node, entry, value);
        report.String("lte_apn", " ");
    }
    pps_decoder_pop(decoder);
}

}  // namespace

void GetAPNInfo(const TavoraContext* context, const char* node, int entry) {
    if (node == nullptr) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Invalid node_name(%s)", kApnInfoName,
              std::strerror(errno));
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Invalid node_name\n", kApnInfoName);
        return;
    }
    int fd = context != nullptr ? context->omadm_fd : -1;
    if (fd < 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Failed to open /pps/services/omadm/radio/control(%s)", kApnInfoName,
              std::strerror(errno));
        return;
    }

    // The control object is opened to wait for answers, and a service that
    // never answers would hold the poll loop for ever: each exchange waits
    // at most kOmadmAnswerTimeoutMs, and while late answers are owed no new
    // request is sent, so one silent service costs one wait per report.
    DrainLateAnswers(fd);
    if (owed_answers > 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : OMA-DM service owes %d answers; node %s of APN %d not asked\n", kApnInfoName,
              owed_answers, node, entry);
        return;
    }
    SendLeafRequest(fd, node, entry);
    if (!WaitForAnswer(fd)) {
        if (owed_answers++ == 0) owed_since = Clock::now();
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : no answer for node %s of APN %d within %d ms\n", kApnInfoName, node, entry,
              kOmadmAnswerTimeoutMs);
        return;
    }
    std::memset(exchange_buffer, 0, kExchangeBufferSize);
    if (pps_read(fd, exchange_buffer, kExchangeBufferSize - 1) <= 0) return;

    ReportWriter report(context->eutra_fd);  // context is set: fd came from it
    AddLeafAnswerText(exchange_buffer, node, entry, report);
    report.Write();
}

void AddLeafAnswerText(char* text, const char* node, int entry, ReportWriter& report) {
    PpsObjectText answer(kApnInfoName, text);
    if (answer.ok()) AddLeafAnswer(answer.decoder(), node, entry, report);
}

void ResetApnInfo() {
    std::strcpy(CurrentApnName, "vzwinternet");
    owed_answers = 0;
}
