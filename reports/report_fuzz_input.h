// How the report fuzz targets read their input: the first bytes are a RAT
// measurement response (zero-padded when the input is shorter); the rest is
// a sequence of log packets, each a code selector byte (an index into the
// target's codes), a 16-bit length and that many bytes (fewer when the
// input ends), delivered through the DM callback into an emptied store.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "diaglog/log_snapshot_store.h"
#include "qmi/vendor_requests.h"

namespace rt::fuzz {

inline RatMeasInfoResponse StoreFuzzInput(const uint8_t* data, size_t size,
                                          std::span<const uint16_t> codes) {
    g_log_snapshot_store.Reset();
    RatMeasInfoResponse response{};
    const size_t payload = std::min(size, sizeof response.bytes);
    std::memcpy(response.bytes, data, payload);
    for (size_t at = payload; at + 3 <= size;) {
        const uint16_t code = codes[data[at] % codes.size()];
        const size_t length = std::min<size_t>(data[at + 1] | data[at + 2] << 8, size - at - 3);
        DM_recv_log_packet_cb(nullptr, code, data + at + 3, static_cast<uint32_t>(length));
        at += 3 + length;
    }
    return response;
}

}  // namespace rt::fuzz
