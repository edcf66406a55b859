#include "platform/dmux/crc16.h"

#include <array>

namespace dmux {

namespace {

constexpr int kSlices = 16;
using Tables = std::array<std::array<uint16_t, 256>, kSlices>;

// tables[0] is the classic byte table; tables[k] advances a byte that sits
// k positions further ahead. The CRC being only 16 bits, it folds into the
// first two bytes of a block and every other byte's look-up is independent
// of it: a block of n bytes is n look-ups, all but two off the critical path.
constexpr Tables MakeTables() {
    Tables t{};
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t crc = static_cast<uint16_t>(i);
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
        t[0][i] = crc;
    }
    for (unsigned i = 0; i < 256; ++i)
        for (int k = 1; k < kSlices; ++k)
            t[k][i] = static_cast<uint16_t>((t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF]);
    return t;
}

constexpr Tables kTables = MakeTables();

// The XOR of the look-ups of bytes [From, To) of a block of N, split in
// halves so that the XORs form a tree rather than one long chain.
template <size_t N, size_t From, size_t To>
inline uint32_t Lookups(const uint8_t* block) {
    if constexpr (To - From == 1) {
        return kTables[N - 1 - From][block[From]];
    } else {
        constexpr size_t kMid = From + (To - From) / 2;
        return Lookups<N, From, kMid>(block) ^ Lookups<N, kMid, To>(block);
    }
}

// The CRC after a block of N bytes (2 <= N <= 16): bytes 2..N-1 do not
// depend on the CRC and are looked up while it is still being computed.
template <size_t N>
inline uint32_t Block(uint32_t crc, const uint8_t* block) {
    uint32_t rest = 0;
    if constexpr (N > 2) rest = Lookups<N, 2, N>(block);
    uint32_t head = crc ^ (block[0] | static_cast<uint32_t>(block[1]) << 8);
    return rest ^ (kTables[N - 1][head & 0xFF] ^ kTables[N - 2][head >> 8]);
}

}  // namespace

uint16_t Crc16X25(const uint8_t* data, size_t length) {
    uint32_t crc = 0xFFFF;
    for (; length >= 16; data += 16, length -= 16) crc = Block<16>(crc, data);
    if (length >= 8) {
        crc = Block<8>(crc, data);
        data += 8;
        length -= 8;
    }
    // The last 0..7 bytes in one block.
    switch (length) {
        case 7:
            crc = Block<7>(crc, data);
            break;
        case 6:
            crc = Block<6>(crc, data);
            break;
        case 5:
            crc = Block<5>(crc, data);
            break;
        case 4:
            crc = Block<4>(crc, data);
            break;
        case 3:
            crc = Block<3>(crc, data);
            break;
        case 2:
            crc = Block<2>(crc, data);
            break;
        case 1:
            crc = (crc >> 8) ^ kTables[0][(crc ^ *data) & 0xFF];
            break;
        default:
            break;
    }
    return static_cast<uint16_t>(crc ^ 0xFFFF);
}

}  // namespace dmux
