// CRC-16/X-25 as DIAG's HDLC framing uses it: reflected polynomial 0x8408,
// initial value 0xFFFF, final XOR 0xFFFF, stored little-endian after the
// frame body. Table-driven, sixteen bytes per step.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dmux {

uint16_t Crc16X25(const uint8_t* data, size_t length);

}  // namespace dmux
