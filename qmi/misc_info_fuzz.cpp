// libFuzzer target: any bytes as the 64-byte misc-information response
// (shorter inputs zero-padded), through the TLV walk into the record.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "qmi/vendor_requests.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t response[kMiscInfoResponseSize] = {};
    std::memcpy(response, data, size < sizeof response ? size : sizeof response);
    MiscInfo record{};
    DecodeMiscInfoResponse(response, &record);
    return 0;
}
