#include "platform/dmux/hdlc_frame_scan.h"

#include <array>
#include <atomic>
#include <initializer_list>
#include <cstring>

#include "platform/dmux/crc16_clmul.h"

namespace dmux {

// A word holds one of the two bytes when word ^ byte-pattern has a zero
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

namespace {

FrameScan ScanThenCheck(const uint8_t* begin, const uint8_t* end) {
    const uint8_t* stop = FindFlagOrEscape(begin, end);
    return {stop, stop != end && *stop == kHdlcFlag && FrameChecks(begin, stop - begin)};
}

#ifdef DMUX_CRC_CLMUL
using namespace clmul;

// The CRC register after `bytes`, a bit at a time: for the constants below.
constexpr uint16_t RegisterAfter(uint16_t crc, std::initializer_list<uint8_t> bytes) {
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0x8408 : crc >> 1;
    }
    return crc;
}

// Leading zeros leave a CRC that starts from 0 unchanged, so the initial
// 0xFFFF can come in as two bytes before the frame, at the end of an
// otherwise empty 64-byte block: every block of the frame then folds alike.
constexpr uint8_t kInitialBytes[2] = {0x21, 0xF3};
static_assert(RegisterAfter(0, {kInitialBytes[0], kInitialBytes[1], 0, 0}) ==
              RegisterAfter(0xFFFF, {0, 0}));

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
    __m512i acc = _mm512_set_epi64(
        static_cast<long long>(uint64_t{kInitialBytes[1]} << 56 | uint64_t{kInitialBytes[0]} << 48),
        0, 0, 0, 0, 0, 0, 0);
    for (const uint8_t* p = begin;; p += 64) {
        const size_t left = static_cast<size_t>(end - p);
        const __m512i block = _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, left < 64 ? left : 64), p);
        const __mmask64 hits =
            _mm512_cmpeq_epi8_mask(block, flag) | _mm512_cmpeq_epi8_mask(block, escape);
        if (hits == 0) {
            if (left <= 64) return {end, false};
            acc = _mm512_xor_si512(Times(acc, step), block);
            continue;
        }
        const unsigned before = static_cast<unsigned>(__builtin_ctzll(hits));
        const uint8_t* stop = p + before;
        const size_t length = static_cast<size_t>(stop - begin);
        if (*stop != kHdlcFlag || length < 3 || length > kMaxHdlcFrame) return {stop, false};
        acc = _mm512_xor_si512(Times(acc, step), _mm512_maskz_mov_epi8(_bzhi_u64(~0ull, before), block));
        return {stop, Reduce(JoinLanes(acc)) == kPaddedResidues[64 - before]};
    }
}
#undef DMUX_SCAN_TARGET
#endif

// The first call picks the implementation for this CPU and keeps it.
FrameScan ChooseScan(const uint8_t* begin, const uint8_t* end);
std::atomic<FrameScanFunction> scan_function{ChooseScan};

FrameScan ChooseScan(const uint8_t* begin, const uint8_t* end) {
    FrameScanFunction chosen = FrameScanImplementations().back();
    scan_function.store(chosen, std::memory_order_relaxed);
    return chosen(begin, end);
}

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

FrameScan ScanFrame(const uint8_t* begin, const uint8_t* end) {
    return scan_function.load(std::memory_order_relaxed)(begin, end);
}

}  // namespace dmux
