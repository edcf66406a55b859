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

}  // namespace

void Publish3GPP2Info(ReportWriter& report, [[maybe_unused]] TavoraContext* context) {
    int status = radio_tavora_vendor_misc_info(&misc_info_record);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Error in sending & processing get_misc_info_qmi: Error = %d", "Get3GPP2Info",
              status);
        for (const char* name : {"mob_fw", "pesn", "mob_p_rev", "sci", "model"}) {
            report.NoData(name);
        }
    } else {
        AddText(&report, "pesn", FieldText(misc_info_record.pesn));
        AddText(&report, "mob_fw", FieldText(misc_info_record.mob_fw));
        AddNumber(&report, "mob_p_rev", misc_info_record.mob_p_rev);
        AddNumber(&report, "sci", misc_info_record.sci);
        AddText(&report, "model", FieldText(misc_info_record.model));
    }
}
