#include "service/pps_object_text.h"

#include "service/tavora_log.h"

namespace {

void LogStepError(const char* caller, const char* step, int code) {
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: Error in %s : %d\n", caller, step,
          code);
}

}  // namespace

PpsObjectText::PpsObjectText(const char* caller, char* text, const char* parse_step) {
    int status = pps_decoder_initialize(&decoder_, nullptr);
    if (status != PPS_DECODER_OK) {
        LogStepError(caller, "pps_decoder_initialize", status);
        return;
    }
    initialised_ = true;
    if ((status = pps_decoder_parse_pps_str(&decoder_, text)) != PPS_DECODER_OK) {
        LogStepError(caller, parse_step, status);
    } else if ((status = pps_decoder_push(&decoder_, nullptr)) != PPS_DECODER_OK) {
        LogDecoderPushError(caller, status);
    } else {
        entered_ = true;
    }
}

PpsObjectText::~PpsObjectText() {
    if (entered_) pps_decoder_pop(&decoder_);
    if (initialised_) pps_decoder_cleanup(&decoder_);
}

void LogDecoderPushError(const char* caller, int code) {
    LogStepError(caller, "pps_decoder_push", code);
}
