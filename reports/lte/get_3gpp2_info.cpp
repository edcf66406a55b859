#include "reports/lte/get_3gpp2_info.h"

#include <unistd.h>

#include <string>

#include "platform/pps/pps_encoder.h"
#include "service/pps_server.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"
#include "service/tavora_strings.h"

namespace {

MiscInfo misc_info_record;

// A text field up to its first zero byte or its end, whichever comes first.
template <size_t N>
std::string FieldText(const char (&field)[N]) {
    size_t length = 0;
    while (length < N && field[length] != '\0') ++length;
    return std::string(field, length);
}

void AddText(pps_encoder_t* encoder, const char* name, const std::string& text) {
    pps_encoder_add_string(encoder, name, text.empty() ? kNoDataAvailable : text.c_str());
}

void AddNumber(pps_encoder_t* encoder, const char* name, uint8_t value) {
    if (value == 0) {
        pps_encoder_add_string(encoder, name, kNoDataAvailable);
    } else {
        pps_encoder_add_int(encoder, name, value);
    }
}

}  // namespace

void Get3GPP2Info(PPSServer* server, void* arg, uint64_t client_id, const char* msg, const char* id,
                  const char* dat) {
    auto* context = static_cast<TavoraContext*>(arg);
    pps_encoder_t encoder;
    pps_encoder_initialize(&encoder, false);
    int status = radio_tavora_vendor_misc_info(&misc_info_record);
    if (status != 0) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : Error in sending & processing get_misc_info_qmi: Error = %d", "Get3GPP2Info",
              status);
        for (const char* name : {"mob_fw", "pesn", "mob_p_rev", "sci", "model"}) {
            pps_encoder_add_string(&encoder, name, kNoDataAvailable);
        }
    } else {
        AddText(&encoder, "pesn", FieldText(misc_info_record.pesn));
        AddText(&encoder, "mob_fw", FieldText(misc_info_record.mob_fw));
        AddNumber(&encoder, "mob_p_rev", misc_info_record.mob_p_rev);
        AddNumber(&encoder, "sci", misc_info_record.sci);
        AddText(&encoder, "model", FieldText(misc_info_record.model));
    }
    const char* buffer = pps_encoder_buffer(&encoder);
    if (buffer != nullptr && context != nullptr) {
        ssize_t ignored = ::write(context->cdma_fd, buffer, pps_encoder_length(&encoder));
        (void)ignored;
    }
    server->PPSReply(kControlServerPath, client_id, msg, id, dat, 0, false);
    pps_encoder_cleanup(&encoder);
}
