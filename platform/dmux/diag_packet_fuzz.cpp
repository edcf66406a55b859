// libFuzzer target: any bytes as one DIAG frame body, through the frame
// parser, the log-config parsers and the log record header readers.
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/dmux/diag_packet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> body(data, size);
    dmux::DiagFrame frame = dmux::ParseDiagFrame(body);
    volatile uint64_t sink = 0;
    for (uint8_t byte : frame.record) sink = sink + byte;
    sink = sink + dmux::LogRecordCode(frame.record) + dmux::LogRecordTimestamp(frame.record);
    sink = sink + dmux::LogRecordCode(body) + dmux::LogRecordTimestamp(body);
    if (auto mask = dmux::ParseLogConfigSetMask(body)) sink = sink + mask->equipment_id;
    if (auto response = dmux::ParseLogConfigResponse(body)) sink = sink + 1;
    return 0;
}
