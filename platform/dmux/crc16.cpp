#include "platform/dmux/crc16.h"

#include <array>

#include "platform/dmux/crc16_clmul.h"

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

// The CRC after the last 0..15 bytes, table-driven.
inline uint32_t Tail(uint32_t crc, const uint8_t* data, size_t length) {
    if (length >= 8) {
        crc = Block<8>(crc, data);
        data += 8;
        length -= 8;
    }
    switch (length) {
        case 7:
            return Block<7>(crc, data);
        case 6:
            return Block<6>(crc, data);
        case 5:
            return Block<5>(crc, data);
        case 4:
            return Block<4>(crc, data);
        case 3:
            return Block<3>(crc, data);
        case 2:
            return Block<2>(crc, data);
        case 1:
            return (crc >> 8) ^ kTables[0][(crc ^ *data) & 0xFF];
        default:
            return crc;
    }
}

uint16_t TableCrc(const uint8_t* data, size_t length) {
    uint32_t crc = 0xFFFF;
    for (; length >= 16; data += 16, length -= 16) crc = Block<16>(crc, data);
    return static_cast<uint16_t>(Tail(crc, data, length) ^ 0xFFFF);
}

#ifdef DMUX_CRC_CLMUL
using namespace clmul;

// Shuffle masks (0x80: a zero byte) read at offset r, 0 <= r < 16:
// from kUpper, byte i takes byte i - (16 - r), the first r bytes moved to
// the end; from kLower, byte i takes byte i + r, the bytes after the first
// r moved to the front.
constexpr uint8_t kUpper[32] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                0x80, 0x80, 0x80, 0x80, 0x80, 0,    1,    2,    3,    4,    5,
                                6,    7,    8,    9,    10,   11,   12,   13,   14,   15};
constexpr uint8_t kLower[32] = {0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,
                                11,   12,   13,   14,   15,   0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

DMUX_CLMUL_TARGET inline __m128i Load(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

// A register times x^128, congruent and under 80 bits.
DMUX_CLMUL_TARGET inline __m128i Fold(__m128i a) {
    const __m128i k = _mm_set_epi64x(static_cast<long long>(kShift128.second_half),
                                     static_cast<long long>(kShift128.first_half));
    return _mm_xor_si128(_mm_clmulepi64_si128(a, k, 0x00), _mm_clmulepi64_si128(a, k, 0x11));
}

// The CRC register (before the final XOR) after `length` (>= 16) bytes,
// `acc` holding the first length / 16 blocks folded, the initial value in
// its first two bytes. The last r = length % 16 bytes T make A x^8r + T:
// A's first r bytes, moved to the end of a register of their own, fold as
// a block would, and its other bytes followed by T are the last block. No
// branch depends on the length.
DMUX_CLMUL_TARGET inline uint32_t FinishCrc(__m128i acc, const uint8_t* data, size_t length) {
    const size_t r = length % 16;
    const __m128i upper = Load(kUpper + r);
    const __m128i last_bytes = _mm_and_si128(Load(data + length - 16),  // T at its end
                                             _mm_cmpgt_epi8(upper, _mm_set1_epi8(-1)));
    acc = _mm_xor_si128(Fold(_mm_shuffle_epi8(acc, upper)),
                        _mm_or_si128(_mm_shuffle_epi8(acc, Load(kLower + r)), last_bytes));

    return Reduce(acc);
}

DMUX_CLMUL_TARGET inline uint32_t FoldCrc(uint32_t crc, const uint8_t* data, size_t length) {
    // The CRC so far enters as the first two bytes do in Block.
    __m128i acc = _mm_xor_si128(Load(data), _mm_cvtsi32_si128(static_cast<int>(crc)));
    const size_t blocks = length / 16;
    for (size_t i = 1; i < blocks; ++i) acc = _mm_xor_si128(Fold(acc), Load(data + 16 * i));
    return FinishCrc(acc, data, length);
}

// Long frames, where the CPU has 512-bit carry-less multiplication: clmul
// throughput is what limits the 128-bit loop above, and one instruction
// multiplies four registers. Not for fewer than four blocks.
constexpr size_t kWideFrom = 64;

DMUX_WIDE_CLMUL_TARGET inline uint32_t FoldCrcWide(uint32_t crc, const uint8_t* data,
                                                   size_t length) {
    const size_t blocks = length / 16;
    __m512i lanes = _mm512_xor_si512(
        _mm512_loadu_si512(data), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(crc))));
    const __m512i step = Lanes(kShift512, kShift512, kShift512, kShift512);
    size_t i = 4;
    for (; i + 4 <= blocks; i += 4)
        lanes = _mm512_xor_si512(Times(lanes, step), _mm512_loadu_si512(data + 16 * i));
    __m128i acc = JoinLanes(lanes);
    for (; i < blocks; ++i) acc = _mm_xor_si128(Fold(acc), Load(data + 16 * i));
    return FinishCrc(acc, data, length);
}

// The entry points, one per kind of CPU, each whole for any length.
DMUX_CLMUL_TARGET uint16_t ClmulCrc(const uint8_t* data, size_t length) {
    if (length < 16) return TableCrc(data, length);
    return static_cast<uint16_t>(FoldCrc(0xFFFF, data, length) ^ 0xFFFF);
}

DMUX_WIDE_CLMUL_TARGET uint16_t WideClmulCrc(const uint8_t* data, size_t length) {
    if (length < kWideFrom) return ClmulCrc(data, length);
    return static_cast<uint16_t>(FoldCrcWide(0xFFFF, data, length) ^ 0xFFFF);
}
#endif

}  // namespace

std::vector<Crc16Function> Crc16X25Implementations() {
    std::vector<Crc16Function> runnable = {TableCrc};
#ifdef DMUX_CRC_CLMUL
    __builtin_cpu_init();
    if (__builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3")) {
        runnable.push_back(ClmulCrc);
        if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("avx512f") &&
            __builtin_cpu_supports("vpclmulqdq"))
            runnable.push_back(WideClmulCrc);
    }
#endif
    return runnable;
}

uint16_t Crc16X25(const uint8_t* data, size_t length) {
    // Picked for this CPU on the first call and kept: later calls cost one
    // indirect call, not tests of the CPU and the length on the way.
    static const Crc16Function chosen = Crc16X25Implementations().back();
    return chosen(data, length);
}

}  // namespace dmux
