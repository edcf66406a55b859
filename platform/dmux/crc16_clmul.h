// Carry-less multiplication for CRC-16/X-25 on x86-64: the constants, the
// 64-byte fold of four lanes and the reduction to 16 bits, shared by the
// CRC entry points and the HDLC frame scan that checks a frame's CRC as it
// looks for its end. Defines DMUX_CRC_CLMUL where they exist; each function carries
// its own target, so callers choose at run time whether the CPU has it.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define DMUX_CRC_CLMUL 1
#endif

#ifdef DMUX_CRC_CLMUL
namespace dmux::clmul {

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
// A polynomial of degree under 64 (a remainder, a quotient) as a lane:
// bit 63 - d holds x^d.
constexpr uint64_t Lane(uint64_t poly) {
    uint64_t lane = 0;
    for (int d = 0; d < 64; ++d)
        if ((poly >> d) & 1) lane |= uint64_t{1} << (63 - d);
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
inline constexpr Shift kShift128 = ShiftBy(128);
// The first half's two 32-bit quarters, La x^96 + Lb x^64, fold into the
// second half side by side: each product is under 48 bits.
inline constexpr uint64_t kFoldThirdQuarter = Lane(XPowMod(63));
inline constexpr uint64_t kFoldFirstQuarter = Lane(XPowMod(95));

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
inline constexpr uint64_t kBarrettMu = Lane(BarrettMuLow());
inline constexpr uint64_t kPolyLow = Lane(0x1021);

#define DMUX_CLMUL_TARGET __attribute__((target("pclmul,ssse3")))

// The CRC register (before the final XOR) of the bytes folded into `acc`:
// its first half is folded into its second, a quarter at a time, leaving
// eight bytes for a Barrett reduction.
DMUX_CLMUL_TARGET inline uint32_t Reduce(__m128i acc) {
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

// Four registers at once, where the CPU has 512-bit carry-less
// multiplication: four lanes, each a block apart, step 64 bytes at a time
// (x^512), then join into one register.
#define DMUX_WIDE_CLMUL_TARGET __attribute__((target("pclmul,ssse3,avx2,avx512f,vpclmulqdq")))

inline constexpr Shift kShift256 = ShiftBy(256);
inline constexpr Shift kShift384 = ShiftBy(384);
inline constexpr Shift kShift512 = ShiftBy(512);

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

// The four lanes as one register: lanes 0, 1 and 2 times x^384, x^256 and
// x^128 (lane 3 times nothing, then added as it is), the four summed into
// lane 0. (The _mask_ forms: GCC 12 warns about the others' undefined fill.)
DMUX_WIDE_CLMUL_TARGET inline __m128i JoinLanes(__m512i lanes) {
    __m512i joined = _mm512_xor_si512(Times(lanes, Lanes(kShift384, kShift256, kShift128, {0, 0})),
                                      _mm512_maskz_mov_epi64(0xC0, lanes));
    const __m512i zero = _mm512_setzero_si512();
    joined = _mm512_xor_si512(joined, _mm512_mask_shuffle_i64x2(zero, 0xFF, joined, joined, 0x4E));
    joined = _mm512_xor_si512(joined, _mm512_mask_shuffle_i64x2(zero, 0xFF, joined, joined, 0xB1));
    return _mm512_mask_extracti32x4_epi32(_mm_setzero_si128(), 0xF, joined, 0);
}

}  // namespace dmux::clmul
#endif
