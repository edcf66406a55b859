// libFuzzer target: any bytes through the HDLC deframer, fed in chunks whose
// sizes the input's first byte chooses; every frame body is read end to end.
#include <cstddef>
#include <cstdint>

#include "platform/dmux/hdlc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    size_t chunk = 1 + data[0];
    ++data;
    --size;
    dmux::HdlcDeframer deframer;
    volatile uint8_t sum = 0;
    for (size_t at = 0; at < size; at += chunk) {
        size_t length = size - at < chunk ? size - at : chunk;
        deframer.Feed(data + at, length, [&](std::span<const uint8_t> body) {
            for (uint8_t byte : body) sum = static_cast<uint8_t>(sum + byte);
        });
    }
    deframer.Finish();
    return 0;
}
