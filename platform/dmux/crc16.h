// CRC-16/X-25 as DIAG's HDLC framing uses it: reflected polynomial 0x8408,
// initial value 0xFFFF, final XOR 0xFFFF, stored little-endian after the
// frame body. Sixteen bytes a step: by carry-less multiplication where the
// CPU has it (x86-64 with PCLMULQDQ; from 64 bytes on, four blocks per
// instruction where it has VPCLMULQDQ and AVX-512), by table look-ups
// elsewhere and below sixteen bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace dmux {

uint16_t Crc16X25(const uint8_t* data, size_t length);

// Crc16X25 of any bytes followed by their own CRC (little-endian): a frame
// checks when the CRC of the whole of it, stored CRC included, is this.
inline constexpr uint16_t kCrc16X25Residue = 0x0F47;

// Every implementation this CPU can run, the one Crc16X25 uses last, so
// that a test checks each, not only the one this machine picks.
using Crc16Function = uint16_t (*)(const uint8_t* data, size_t length);
std::vector<Crc16Function> Crc16X25Implementations();

}  // namespace dmux
