#include "platform/dmux/hdlc_frame_scan.h"

#include <array>
#include <cstring>
#include <initializer_list>

#include "platform/dmux/crc16_clmul.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace dmux {

namespace {

// The first 0x7E or 0x7D in [p, end), or end, eight bytes (a word) a step:
// a word holds one of the two bytes when word ^ byte-pattern has a zero
// byte; the byte itself is then found one at a time.
const uint8_t* FindFlagOrEscapeByWords(const uint8_t* p, const uint8_t* end) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kHighs = 0x8080808080808080;
    for (; end - p >= 8; p += 8) {
        uint64_t word;
        std::memcpy(&word, p, 8);
        uint64_t f = word ^ (kOnes * kHdlcFlag);
        uint64_t e = word ^ (kOnes * kHdlcEscape);
        if ((((f - kOnes) & ~f) | ((e - kOnes) & ~e)) & kHighs) break;
    }
    for (; p < end; ++p)
        if (*p == kHdlcFlag || *p == kHdlcEscape) return p;
    return end;
}

// The same, sixteen bytes a step with SSE2 (every x86-64 has it).
inline const uint8_t* FindFlagOrEscape(const uint8_t* p, const uint8_t* end) {
#if defined(__SSE2__)
    const __m128i flag = _mm_set1_epi8(static_cast<char>(kHdlcFlag));
    const __m128i escape = _mm_set1_epi8(static_cast<char>(kHdlcEscape));
    for (; end - p >= 16; p += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        int hits =
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, flag), _mm_cmpeq_epi8(v, escape)));
        if (hits != 0) return p + __builtin_ctz(static_cast<unsigned>(hits));
    }
#endif
    return FindFlagOrEscapeByWords(p, end);
}

FrameScan ScanThenCheck(const uint8_t* begin, const uint8_t* end) {
    const uint8_t* stop = FindFlagOrEscape(begin, end);
    return {stop, stop != end && *stop == kHdlcFlag && FrameChecks(begin, stop - begin)};
}

// Run by run between the escapes. Past kMaxHdlcFrame nothing more is
// written, but the flag is still looked for.
UnescapedFrame UnescapeRuns(const uint8_t* begin, const uint8_t* end, uint8_t* out) {
    size_t n = 0;
    bool oversize = false;
    for (const uint8_t* p = begin;;) {
        const uint8_t* hit = FindFlagOrEscape(p, end);
        const size_t run = static_cast<size_t>(hit - p);
        oversize = oversize || run > kMaxHdlcFrame - n;
        if (!oversize && run > 0) {  // (memcpy from null is undefined even for 0 bytes)
            std::memcpy(out + n, p, run);
            n += run;
        }
        if (hit == end || *hit == kHdlcFlag)
            return {hit, n, oversize ? FrameFault::kOversize : FrameFault::kNone};
        if (hit + 1 == end || hit[1] == kHdlcFlag) {
            oversize = oversize || n == kMaxHdlcFrame;
            return {hit + 1, n, oversize ? FrameFault::kOversize : FrameFault::kStrayEscape};
        }
        oversize = oversize || n == kMaxHdlcFrame;
        if (!oversize) out[n++] = hit[1] ^ kHdlcEscapeXor;
        p = hit + 2;
    }
}

#ifdef DMUX_CRC_CLMUL
using namespace clmul;

// The CRC register after `bytes`, a bit at a time: for the table below.
constexpr uint16_t RegisterAfter(uint16_t crc, std::initializer_list<uint8_t> bytes) {
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
    }
    return crc;
}

// A frame is read in 64-byte blocks, the last padded with zeros: the
// register a good frame leaves after k zeros of padding.
constexpr std::array<uint16_t, 65> MakePaddedResidues() {
    std::array<uint16_t, 65> residues{};
    uint16_t crc = kCrc16X25Residue ^ 0xFFFF;
    for (size_t k = 0; k < residues.size(); ++k) {
        residues[k] = crc;
        crc = RegisterAfter(crc, {0});
    }
    return residues;
}
constexpr std::array<uint16_t, 65> kPaddedResidues = MakePaddedResidues();

#define DMUX_SCAN_TARGET \
    __attribute__((target("pclmul,ssse3,avx2,avx512f,avx512bw,vpclmulqdq,bmi2")))

// 64 bytes a step: the flags and escapes of a block are one mask, and a
// block without either is folded into the CRC. Most frames are under 64
// bytes, so for them nothing branches on the length. Loads are masked at
// the end of the input: nothing past it is read.
DMUX_SCAN_TARGET FrameScan ScanFoldingCrc(const uint8_t* begin, const uint8_t* end) {
    const __m512i flag = _mm512_set1_epi8(static_cast<char>(kHdlcFlag));
    const __m512i escape = _mm512_set1_epi8(static_cast<char>(kHdlcEscape));
    const __m512i step = Lanes(kShift512, kShift512, kShift512, kShift512);
    // The blocks before p, times x^512: at first, the initial value, which
    // enters as the first two bytes do (as in the 128-bit fold).
    __m512i before_p = _mm512_zextsi128_si512(_mm_cvtsi32_si128(0xFFFF));
    for (const uint8_t* p = begin;; p += 64) {
        const size_t left = static_cast<size_t>(end - p);
        const __m512i block = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, left < 64 ? left : 64), p);
        const __mmask64 hits =
            _mm512_cmpeq_epi8_mask(block, flag) | _mm512_cmpeq_epi8_mask(block, escape);
        if (hits == 0) {
            if (left <= 64) return {end, false};
            before_p = Times(_mm512_xor_si512(before_p, block), step);
            continue;
        }
        const unsigned in_block = static_cast<unsigned>(__builtin_ctzll(hits));
        const uint8_t* stop = p + in_block;
        const size_t length = static_cast<size_t>(stop - begin);
        if (*stop != kHdlcFlag || length < 3 || length > kMaxHdlcFrame) return {stop, false};
        const __m512i all =
            _mm512_xor_si512(before_p, _mm512_maskz_mov_epi8(_bzhi_u64(~0ull, in_block), block));
        return {stop, Reduce(JoinLanes(all)) == kPaddedResidues[64 - in_block]};
    }
}
#undef DMUX_SCAN_TARGET

#define DMUX_UNESCAPE_TARGET \
    __attribute__((target("avx2,avx512f,avx512bw,avx512vbmi2,bmi,bmi2,popcnt")))

// 64 bytes a step: a block's escapes are a mask, the bytes after them are
// flipped, and the block's kept bytes are packed together in one
// instruction. An escape escaping another is left to UnescapeRuns: no
// encoder sends one, and with them "after an escape" is no longer one
// shift of the mask.
DMUX_UNESCAPE_TARGET UnescapedFrame UnescapeBlocks(const uint8_t* begin, const uint8_t* end,
                                                   uint8_t* out) {
    const __m512i flag = _mm512_set1_epi8(static_cast<char>(kHdlcFlag));
    const __m512i escape = _mm512_set1_epi8(static_cast<char>(kHdlcEscape));
    const __m512i flip = _mm512_set1_epi8(static_cast<char>(kHdlcEscapeXor));
    size_t n = 0;
    bool oversize = false;
    uint64_t carry = 0;  // 1 when the block before ended with an escape
    for (const uint8_t* p = begin;; p += 64) {
        const size_t left = static_cast<size_t>(end - p);
        const __m512i block = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, left < 64 ? left : 64), p);
        const uint64_t flags = _mm512_cmpeq_epi8_mask(block, flag);
        const unsigned limit = flags != 0 ? static_cast<unsigned>(_tzcnt_u64(flags))
                                          : static_cast<unsigned>(left < 64 ? left : 64);
        const uint64_t frame = _bzhi_u64(~0ull, limit);
        const uint64_t escapes = _mm512_cmpeq_epi8_mask(block, escape) & frame;
        if ((escapes & (escapes << 1 | carry)) != 0) return UnescapeRuns(begin, end, out);
        const uint64_t escaped = escapes << 1 | carry;
        const uint64_t keep = frame & ~escapes;
        const size_t kept = static_cast<size_t>(_mm_popcnt_u64(keep));
        oversize = oversize || kept > kMaxHdlcFrame - n;
        if (!oversize) {
            const __m512i bytes =
                _mm512_mask_blend_epi8(escaped, block, _mm512_xor_si512(block, flip));
            _mm512_storeu_si512(out + n, _mm512_maskz_compress_epi8(keep, bytes));
            n += kept;
        }
        if (flags != 0 || left <= 64) {
            const bool stray = limit == 0 ? carry != 0 : ((escapes >> (limit - 1)) & 1) != 0;
            oversize = oversize || (stray && n == kMaxHdlcFrame);
            const FrameFault fault = oversize ? FrameFault::kOversize
                                     : stray  ? FrameFault::kStrayEscape
                                              : FrameFault::kNone;
            return {flags != 0 ? p + limit : end, n, fault};
        }
        carry = escapes >> 63;
    }
}
#undef DMUX_UNESCAPE_TARGET
#endif

}  // namespace

std::vector<FrameScanFunction> FrameScanImplementations() {
    std::vector<FrameScanFunction> runnable = {ScanThenCheck};
#ifdef DMUX_CRC_CLMUL
    __builtin_cpu_init();
    if (__builtin_cpu_supports("pclmul") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("bmi2"))
        runnable.push_back(ScanFoldingCrc);
#endif
    return runnable;
}

std::vector<FrameUnescapeFunction> FrameUnescapeImplementations() {
    std::vector<FrameUnescapeFunction> runnable = {UnescapeRuns};
#ifdef DMUX_CRC_CLMUL
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi2") &&
        __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
        __builtin_cpu_supports("popcnt"))
        runnable.push_back(UnescapeBlocks);
#endif
    return runnable;
}

// Each picked for this CPU on the first call and kept.
FrameScan ScanFrame(const uint8_t* begin, const uint8_t* end) {
    static const FrameScanFunction chosen = FrameScanImplementations().back();
    return chosen(begin, end);
}

UnescapedFrame UnescapeFrame(const uint8_t* begin, const uint8_t* end, uint8_t* out) {
    static const FrameUnescapeFunction chosen = FrameUnescapeImplementations().back();
    return chosen(begin, end, out);
}

}  // namespace dmux
