#include "config/config_delta.h"

#include <string.h>  // memrchr
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "config/config_actions.h"
#include "platform/pps/pps_client.h"
#include "platform/pps/pps_decoder.h"
#include "service/tavora_context.h"
#include "service/tavora_log.h"

namespace {

constexpr const char* kName = "TavoraConfigObjDelta";
char delta_buffer[4096];

// A full buffer: the change may have been longer, and its last line may be
// cut (`tether_enable::10` read as `tether_enable::1`). What follows the
// last whole line is dropped, never applied; the attributes past the buffer
// were never read. Both are logged.
void DropCutLine(ssize_t length) {
    char* last_newline = static_cast<char*>(::memrchr(delta_buffer, '\n', length));
    char* cut = last_newline != nullptr ? last_newline + 1 : delta_buffer;
    if (*cut != '\0') {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : WARN: Tavora: change longer than %d bytes: cut line '%.40s' and what "
              "follows dropped",
              kName, static_cast<int>(length), cut);
        *cut = '\0';
    } else {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : WARN: Tavora: change of %d bytes or more: attributes past them dropped",
              kName, static_cast<int>(length));
    }
}

}  // namespace

void TavoraConfigObjDelta() {
    const int32_t config_fd = g_tavora_context != nullptr ? g_tavora_context->config_fd : -1;
    if (config_fd < 0) std::perror("open");

    std::memset(delta_buffer, 0, sizeof delta_buffer);
    // pps_read: the first read of the delta handle gives diag/config as it
    // stands then, without the ens_value that start-up deleted.
    ssize_t n = pps_read(config_fd, delta_buffer, sizeof delta_buffer - 1);

    if (n == static_cast<ssize_t>(sizeof delta_buffer - 1)) DropCutLine(n);

    pps_decoder_t decoder;
    pps_decoder_initialize(&decoder, nullptr);
    if (n <= 0) {
        pps_decoder_cleanup(&decoder);
        return;
    }
    if (pps_decoder_parse_pps_str(&decoder, delta_buffer) != PPS_DECODER_OK) {
        std::fputs("Tavora: PPS decoding failed!", stderr);
        pps_decoder_cleanup(&decoder);
        return;
    }
    int status = pps_decoder_push(&decoder, nullptr);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: Error descending in object: %d",
              kName, status);
    }
    // Strictly in table order, whatever the order in the text; an attribute
    // of another type or a deletion counts as absent.
    for (const ConfigAction& action : ConfigActions()) {
        const char* text = nullptr;
        if (pps_decoder_get_string(&decoder, action.attribute, &text) == PPS_DECODER_OK &&
            text != nullptr) {
            action.apply(text);
        } else if (action.when_absent != nullptr) {
            action.when_absent();
        }
    }
    status = pps_decoder_pop(&decoder);
    if (status != PPS_DECODER_OK) {
        slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: Error in pop : %d", kName,
              status);
    }
    // Cleaned up after a failed pop too: a decoder left behind would leak.
    pps_decoder_cleanup(&decoder);
}

void TavoraConfigWatcher(PPSServer* /*server*/, void* /*arg*/, int /*fd*/) {
    TavoraConfigObjDelta();
}
