#include "platform/dmux/crc16.h"

#include <array>
#include <cstring>

namespace dmux {

namespace {

using Tables = std::array<std::array<uint16_t, 256>, 8>;

// tables[0] is the classic byte table; tables[k] advances a byte that sits
// k positions further ahead, so eight bytes fold in with eight look-ups.
constexpr Tables MakeTables() {
    Tables t{};
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t crc = static_cast<uint16_t>(i);
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
        t[0][i] = crc;
    }
    for (unsigned i = 0; i < 256; ++i)
        for (int k = 1; k < 8; ++k)
            t[k][i] = static_cast<uint16_t>((t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF]);
    return t;
}

constexpr Tables kTables = MakeTables();

}  // namespace

uint16_t Crc16X25(const uint8_t* data, size_t length) {
    uint32_t crc = 0xFFFF;
    while (length >= 8) {
        uint32_t lo = static_cast<uint32_t>(data[0]) | static_cast<uint32_t>(data[1]) << 8 |
                      static_cast<uint32_t>(data[2]) << 16 | static_cast<uint32_t>(data[3]) << 24;
        uint32_t hi = static_cast<uint32_t>(data[4]) | static_cast<uint32_t>(data[5]) << 8 |
                      static_cast<uint32_t>(data[6]) << 16 | static_cast<uint32_t>(data[7]) << 24;
        lo ^= crc;
        crc = kTables[7][lo & 0xFF] ^ kTables[6][(lo >> 8) & 0xFF] ^ kTables[5][(lo >> 16) & 0xFF] ^
              kTables[4][lo >> 24] ^ kTables[3][hi & 0xFF] ^ kTables[2][(hi >> 8) & 0xFF] ^
              kTables[1][(hi >> 16) & 0xFF] ^ kTables[0][hi >> 24];
        data += 8;
        length -= 8;
    }
    while (length-- > 0) crc = (crc >> 8) ^ kTables[0][(crc ^ *data++) & 0xFF];
    return static_cast<uint16_t>(crc ^ 0xFFFF);
}

}  // namespace dmux
