#include "platform/dmux/crc16.h"

#include <array>
#include <atomic>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define DMUX_CRC_CLMUL 1
#endif

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
// Carry-less multiplication folds sixteen bytes a step in a few
// instructions, where the tables take one look-up per byte.
//
// The bytes of a 128-bit register, first byte highest, are a polynomial
// R = L x^64 + H (L its first eight bytes). The next block B makes it
// R x^128 + B = L x^192 + H x^128 + B, which stays congruent modulo the
// CRC polynomial with x^192 and x^128 replaced by their 16-bit remainders:
// two products of under 80 bits. A product of two bit-reversed 64-bit
// lanes comes out multiplied by x once more, hence x^191 and x^127.
constexpr uint32_t XPowMod(int n) {
    uint32_t r = 1;  // x^0, bit d = x^d; the polynomial is x^16 + x^12 + x^5 + 1
    for (int i = 0; i < n; ++i) {
        r <<= 1;
        if (r & 0x10000) r ^= 0x11021;
    }
    return r;
}
// A remainder as a lane: bit 63 - d holds x^d.
constexpr uint64_t Lane(uint32_t remainder) {
    uint64_t lane = 0;
    for (int d = 0; d < 16; ++d)
        if ((remainder >> d) & 1) lane |= uint64_t{1} << (63 - d);
    return lane;
}
// The pair of remainders that multiplies a register by x^bits: x^(bits +
// 63) for its first half, x^(bits - 1) for its second.
struct Shift {
    uint64_t first_half;
    uint64_t second_half;
};
constexpr Shift ShiftBy(int bits) {
    return {Lane(XPowMod(bits + 63)), Lane(XPowMod(bits - 1))};
}
constexpr Shift kShift128 = ShiftBy(128);
// The first half's two 32-bit quarters, La x^96 + Lb x^64, fold into the
// second half side by side: each product is under 48 bits.
constexpr uint64_t kFoldThirdQuarter = Lane(XPowMod(63));
constexpr uint64_t kFoldFirstQuarter = Lane(XPowMod(95));

// Barrett reduction of those eight bytes W: the CRC is W x^16 mod P =
// low16(q Plow) with q = W + floor(W mu_low / x^64), where mu = x^80 / P =
// x^64 + mu_low and Plow = P - x^16: two products instead of a division.
constexpr uint64_t BarrettMuLow() {
    // Long division of x^80 by P: the dividend's bits go into a 17-bit
    // window from the top; where the window reaches x^16, P is taken off and
    // that quotient bit is set.
    uint64_t quotient_low = 0;
    uint32_t window = 0;
    for (int i = 80; i >= 0; --i) {
        window = (window << 1) | (i == 80 ? 1u : 0u);
        if ((window >> 16) & 1) {
            window ^= 0x11021;
            if (i < 64) quotient_low |= uint64_t{1} << i;
        }
    }
    return quotient_low;
}
// A 64-bit polynomial as a lane: bit 63 - d holds x^d.
constexpr uint64_t Lane64(uint64_t poly) {
    uint64_t lane = 0;
    for (int d = 0; d < 64; ++d)
        if ((poly >> d) & 1) lane |= uint64_t{1} << (63 - d);
    return lane;
}
constexpr uint64_t kBarrettMu = Lane64(BarrettMuLow());
constexpr uint64_t kPolyLow = Lane(0x1021);

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

// The CRC of `length` (>= 16) bytes: folded into one register sixteen
// bytes a step. The last r = length % 16 bytes T make A x^8r + T: A's
// first r bytes, moved to the end of a register of their own, fold as a
// block would, and its other bytes followed by T are the last block. Then
// the register's first half is folded into its second, a quarter at a
// time, leaving eight bytes for a Barrett reduction. No
// branch depends on the length but the loop's.
#define DMUX_CLMUL_TARGET __attribute__((target("pclmul,ssse3")))

DMUX_CLMUL_TARGET inline __m128i Load(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

// A register times x^128, congruent and under 80 bits.
DMUX_CLMUL_TARGET inline __m128i Fold(__m128i a) {
    const __m128i k = _mm_set_epi64x(static_cast<long long>(kShift128.second_half),
                                     static_cast<long long>(kShift128.first_half));
    return _mm_xor_si128(_mm_clmulepi64_si128(a, k, 0x00), _mm_clmulepi64_si128(a, k, 0x11));
}

// `acc` holds the first length / 16 blocks.
DMUX_CLMUL_TARGET inline uint32_t FinishCrc(__m128i acc, const uint8_t* data, size_t length) {
    const size_t r = length % 16;
    const __m128i upper = Load(kUpper + r);
    const __m128i last_bytes = _mm_and_si128(Load(data + length - 16),  // T at its end
                                             _mm_cmpgt_epi8(upper, _mm_set1_epi8(-1)));
    acc = _mm_xor_si128(Fold(_mm_shuffle_epi8(acc, upper)),
                        _mm_or_si128(_mm_shuffle_epi8(acc, Load(kLower + r)), last_bytes));

    const __m128i quarters = _mm_set_epi64x(static_cast<long long>(kFoldFirstQuarter),
                                            static_cast<long long>(kFoldThirdQuarter));
    // Lb (the lane's upper 32 bits) stays first, La moves up 32 and second.
    const __m128i split = _mm_unpacklo_epi64(
        _mm_and_si128(acc, _mm_set_epi64x(0, static_cast<long long>(0xFFFFFFFF00000000))),
        _mm_slli_epi64(acc, 32));
    acc = _mm_xor_si128(_mm_and_si128(acc, _mm_set_epi64x(-1, 0)),
                        _mm_xor_si128(_mm_clmulepi64_si128(split, quarters, 0x00),
                                      _mm_clmulepi64_si128(split, quarters, 0x11)));
    // W now fills the second half. Products of lanes come out times x: the
    // quotient's bits sit one place low, the remainder at bits 111..126.
    const __m128i w = _mm_srli_si128(acc, 8);
    const __m128i q = _mm_xor_si128(
        w, _mm_slli_epi64(
               _mm_clmulepi64_si128(w, _mm_set_epi64x(0, static_cast<long long>(kBarrettMu)), 0x00),
               1));
    const __m128i rem =
        _mm_clmulepi64_si128(q, _mm_set_epi64x(0, static_cast<long long>(kPolyLow)), 0x00);
    return static_cast<uint32_t>(_mm_extract_epi16(_mm_srli_epi64(rem, 47), 4));
}

DMUX_CLMUL_TARGET inline uint32_t FoldCrc(uint32_t crc, const uint8_t* data, size_t length) {
    // The CRC so far enters as the first two bytes do in Block.
    __m128i acc = _mm_xor_si128(Load(data), _mm_cvtsi32_si128(static_cast<int>(crc)));
    const size_t blocks = length / 16;
    for (size_t i = 1; i < blocks; ++i) acc = _mm_xor_si128(Fold(acc), Load(data + 16 * i));
    return FinishCrc(acc, data, length);
}

// Long frames, where the CPU has 512-bit carry-less multiplication: one
// instruction multiplies four registers, so four lanes, each a block
// apart, step 64 bytes at a time (x^512), then join into one register,
// each shifted by the distance of its last block from the end: clmul
// throughput is what limits the 128-bit loop above. Not for fewer than
// four blocks.
constexpr size_t kWideFrom = 64;
constexpr Shift kShift256 = ShiftBy(256);
constexpr Shift kShift384 = ShiftBy(384);
constexpr Shift kShift512 = ShiftBy(512);

#define DMUX_WIDE_CLMUL_TARGET __attribute__((target("pclmul,ssse3,avx2,avx512f,vpclmulqdq")))

DMUX_WIDE_CLMUL_TARGET inline __m512i Times(__m512i a, __m512i k) {
    return _mm512_xor_si512(_mm512_clmulepi64_epi128(a, k, 0x00),
                            _mm512_clmulepi64_epi128(a, k, 0x11));
}

// Four lanes' multipliers: lane n multiplies by sn.
DMUX_WIDE_CLMUL_TARGET inline __m512i Lanes(Shift s0, Shift s1, Shift s2, Shift s3) {
    auto q = [](uint64_t v) { return static_cast<long long>(v); };
    return _mm512_set_epi64(q(s3.second_half), q(s3.first_half), q(s2.second_half),
                            q(s2.first_half), q(s1.second_half), q(s1.first_half),
                            q(s0.second_half), q(s0.first_half));
}

DMUX_WIDE_CLMUL_TARGET inline uint32_t FoldCrcWide(uint32_t crc, const uint8_t* data,
                                                   size_t length) {
    const size_t blocks = length / 16;
    __m512i lanes = _mm512_xor_si512(
        _mm512_loadu_si512(data), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(crc))));
    const __m512i step = Lanes(kShift512, kShift512, kShift512, kShift512);
    size_t i = 4;
    for (; i + 4 <= blocks; i += 4)
        lanes = _mm512_xor_si512(Times(lanes, step), _mm512_loadu_si512(data + 16 * i));
    // Lanes 0, 1 and 2 times x^384, x^256 and x^128 (lane 3 times nothing,
    // then added as it is), and the four summed into lane 0. (The _mask_
    // forms: GCC 12 warns about the others' undefined fill.)
    __m512i joined = _mm512_xor_si512(Times(lanes, Lanes(kShift384, kShift256, kShift128, {0, 0})),
                                      _mm512_maskz_mov_epi64(0xC0, lanes));
    const __m512i zero = _mm512_setzero_si512();
    joined = _mm512_xor_si512(joined, _mm512_mask_shuffle_i64x2(zero, 0xFF, joined, joined, 0x4E));
    joined = _mm512_xor_si512(joined, _mm512_mask_shuffle_i64x2(zero, 0xFF, joined, joined, 0xB1));
    __m128i acc = _mm512_mask_extracti32x4_epi32(_mm_setzero_si128(), 0xF, joined, 0);
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
#undef DMUX_WIDE_CLMUL_TARGET
#undef DMUX_CLMUL_TARGET
#endif

using CrcFunction = Crc16Function;

// The first call picks the entry point for this CPU and keeps it, so each
// later one costs one indirect call rather than tests of the CPU and the
// length on the way to it. Constant-initialised: a call from another
// file's static initialiser finds ChooseCrc, not a null pointer.
uint16_t ChooseCrc(const uint8_t* data, size_t length);
std::atomic<CrcFunction> crc_function{ChooseCrc};

uint16_t ChooseCrc(const uint8_t* data, size_t length) {
    CrcFunction chosen = Crc16X25Implementations().back();
    crc_function.store(chosen, std::memory_order_relaxed);
    return chosen(data, length);
}

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
    return crc_function.load(std::memory_order_relaxed)(data, length);
}

}  // namespace dmux
