#include "reports/lte/get_3gpp2_info.h"

#include <string>

#include "service/report_writer.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"

namespace {

MiscInfo misc_info_record;

// A text field up to its first zero byte or its end, whichever comes first.
template <size_t N>
std::string FieldText(const char (&field)[N]) {
    size_t length = 0;
    while (length < N && field[length] != '\0') ++length;
    return std::string(field, length);
}

void AddText(ReportWriter* report, const char* name, const std::string& text) {
    if (text.empty()) {
        report->NoData(name);
    } else {
        report->String(name, text.c_str());
    }
}

void AddNumber(ReportWriter* report, const char* name, uint8_t value) {
    if (value == 0) {
        report->NoData(name);
    } else {
        report->Int(name, value);
    }
}

// The misc-information attributes: a failed request's placeholders come
// in another order than the values, so each name is a constant used by both.
constexpr const char* kPesn = "pesn";
constexpr const char* kFirmware = "mob_fw";
constexpr const char* kProtocolRevision = "mob_p_rev";
constexpr const char* kSlotCycleIndex = "sci";
constexpr const char* kModel = "model";

}  // namespace

void Publish3GPP2Info(ReportWriter& report, [[maybe_unused]] TavoraContext* context) {
    int status = radio_tavora_vendor_misc_info(&misc_info_record);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Error in sending & processing get_misc_info_qmi: Error = %d", "Get3GPP2Info",
              status);
        for (const char* name : {kFirmware, kPesn, kProtocolRevision, kSlotCycleIndex, kModel})
            report.NoData(name);
    } else {
        AddText(&report, kPesn, FieldText(misc_info_record.pesn));
        AddText(&report, kFirmware, FieldText(misc_info_record.mob_fw));
        AddNumber(&report, kProtocolRevision, misc_info_record.mob_p_rev);
        AddNumber(&report, kSlotCycleIndex, misc_info_record.sci);
        AddText(&report, kModel, FieldText(misc_info_record.model));
    }
}
