#include "platform/dmux/hdlc.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define DMUX_HDLC_SIMD 1
#endif

namespace dmux {

namespace {

// A word holds one of the two bytes when word ^ byte-pattern has a zero
// byte; the byte itself is then found one at a time.
const uint8_t* FindByWords(const uint8_t* p, const uint8_t* end) {
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

#ifdef DMUX_HDLC_SIMD
// SSE2 is part of every x86-64; AVX2 is used where the CPU has it.
const uint8_t* FindSse2(const uint8_t* p, const uint8_t* end) {
    const __m128i flag = _mm_set1_epi8(static_cast<char>(kHdlcFlag));
    const __m128i escape = _mm_set1_epi8(static_cast<char>(kHdlcEscape));
    for (; end - p >= 16; p += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        int hits =
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, flag), _mm_cmpeq_epi8(v, escape)));
        if (hits != 0) return p + __builtin_ctz(static_cast<unsigned>(hits));
    }
    return FindByWords(p, end);
}

__attribute__((target("avx2"))) const uint8_t* FindAvx2(const uint8_t* p, const uint8_t* end) {
    const __m256i flag = _mm256_set1_epi8(static_cast<char>(kHdlcFlag));
    const __m256i escape = _mm256_set1_epi8(static_cast<char>(kHdlcEscape));
    for (; end - p >= 32; p += 32) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
        unsigned hits = static_cast<unsigned>(_mm256_movemask_epi8(
            _mm256_or_si256(_mm256_cmpeq_epi8(v, flag), _mm256_cmpeq_epi8(v, escape))));
        if (hits != 0) return p + __builtin_ctz(hits);
    }
    return FindSse2(p, end);
}
#endif

}  // namespace

const uint8_t* FindFlagOrEscape(const uint8_t* p, const uint8_t* end) {
#ifdef DMUX_HDLC_SIMD
    static const bool avx2 = __builtin_cpu_supports("avx2");
    return avx2 ? FindAvx2(p, end) : FindSse2(p, end);
#else
    return FindByWords(p, end);
#endif
}

void HdlcEncode(std::span<const uint8_t> body, std::vector<uint8_t>* out) {
    uint16_t crc = Crc16X25(body.data(), body.size());
    auto put = [out](uint8_t b) {
        if (b == kHdlcFlag || b == kHdlcEscape) {
            out->push_back(kHdlcEscape);
            out->push_back(b ^ kHdlcEscapeXor);
        } else {
            out->push_back(b);
        }
    };
    out->reserve(out->size() + body.size() + 8);
    for (uint8_t b : body) put(b);
    put(static_cast<uint8_t>(crc & 0xFF));
    put(static_cast<uint8_t>(crc >> 8));
    out->push_back(kHdlcFlag);
}

std::vector<uint8_t> HdlcEncode(std::span<const uint8_t> body) {
    std::vector<uint8_t> out;
    HdlcEncode(body, &out);
    return out;
}

void HdlcDeframer::AddPending(const uint8_t* data, size_t length) {
    if (pending_overflow_) return;
    // Escaped bytes can take twice the room of the frame they carry.
    if (pending_.size() + length > 2 * kMaxHdlcFrame) {
        pending_overflow_ = true;
        pending_.clear();
        return;
    }
    pending_.insert(pending_.end(), data, data + length);
}

void HdlcDeframer::Finish() {
    if (!pending_.empty() || pending_overflow_) ++stats_.truncated;
    pending_.clear();
    pending_overflow_ = false;
}

void HdlcDeframer::Reset() {
    pending_.clear();
    pending_overflow_ = false;
    stats_ = {};
}

}  // namespace dmux
