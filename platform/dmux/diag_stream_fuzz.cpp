// libFuzzer target: any bytes as a DIAG byte stream (HDLC frames of log
// packets and log-config answers) with every log code enabled; each record
// delivered is read end to end.
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/dmux/diag_stream.h"
#include "platform/dmux/log_code_mask.h"

namespace {

volatile uint64_t g_sink = 0;

void Sink(void*, uint16_t code, std::span<const uint8_t> record) {
    uint64_t sum = code;
    for (uint8_t byte : record) sum += byte;
    g_sink = g_sink + sum;
}

const dmux::LogCodeMask& EveryCode() {
    static dmux::LogCodeMask mask;
    static bool filled = false;
    if (!filled) {
        for (uint32_t code = 0; code <= 0xFFFF; ++code)
            mask.Enable(static_cast<uint16_t>(code), true);
        filled = true;
    }
    return mask;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    dmux::DiagStream stream(&EveryCode(), Sink, nullptr);
    stream.SetConfigSink([](std::span<const uint8_t> body) { g_sink = g_sink + body.size(); });
    stream.Feed(std::span<const uint8_t>(data, size));
    stream.Finish();
    return 0;
}
