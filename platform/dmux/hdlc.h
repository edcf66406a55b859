// HDLC framing of the DIAG port: each frame is escaped(body || crc16_le)
// followed by one 0x7E flag. 0x7D and 0x7E inside a frame are sent as 0x7D
// then the byte XOR 0x20.
//
// HdlcDeframer takes a byte stream in pieces of any size and hands every
// frame whose CRC checks to a callback as its body (CRC removed). A frame
// that fails (bad CRC, too short, an escape right before the flag, larger
// than the limit) is counted and skipped; reading resumes after the next
// flag. Bytes are only copied when a frame carries escapes or spans two
// pieces of input; nothing is allocated per frame.
//
// One pass finds the flags and the escapes together (FindFlagOrEscape), so
// an escape-free frame is read once before its CRC; a frame with escapes is
// copied run by run between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "platform/dmux/crc16.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace dmux {

inline constexpr uint8_t kHdlcFlag = 0x7E;
inline constexpr uint8_t kHdlcEscape = 0x7D;
inline constexpr uint8_t kHdlcEscapeXor = 0x20;

// Largest unescaped frame (body and CRC) accepted: a log packet's 16-bit
// length, its command header, a multi-SIM wrapper and the CRC.
inline constexpr size_t kMaxHdlcFrame = 65535 + 4 + 8 + 2;

// The first 0x7E or 0x7D in [p, end), or end, eight bytes (a word) a step.
const uint8_t* FindFlagOrEscapeByWords(const uint8_t* p, const uint8_t* end);

// The same, sixteen bytes a step with SSE2 (every x86-64 has it), inline:
// it runs once per frame, and a call costs as much as a short frame's scan.
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

// Appends escaped(body || crc) and the closing flag to `out`.
void HdlcEncode(std::span<const uint8_t> body, std::vector<uint8_t>* out);
std::vector<uint8_t> HdlcEncode(std::span<const uint8_t> body);

struct HdlcStats {
    uint64_t good = 0;          // CRC checked, delivered
    uint64_t bad_crc = 0;       // CRC mismatch (includes frames cut short and run into the next)
    uint64_t too_short = 0;     // fewer than 3 bytes between flags
    uint64_t stray_escape = 0;  // 0x7D right before the flag
    uint64_t oversize = 0;      // longer than kMaxHdlcFrame
    uint64_t truncated = 0;     // bytes left without a closing flag at Finish()
    uint64_t bad() const { return bad_crc + too_short + stray_escape + oversize; }
};

class HdlcDeframer {
  public:
    HdlcDeframer() : scratch_(kMaxHdlcFrame), pending_() { pending_.reserve(2 * kMaxHdlcFrame); }

    // Calls on_frame(std::span<const uint8_t> body) for each good frame completed by
    // these bytes. The span is valid only during the call.
    template <class OnFrame>
    void Feed(const uint8_t* data, size_t length, OnFrame&& on_frame);

    // End of input: a partial frame still buffered is dropped and counted.
    void Finish();
    // Forgets a partial frame and the counters.
    void Reset();

    const HdlcStats& stats() const { return stats_; }

  private:
    // `escape` is the frame's first 0x7D, nullptr when it has none. Always
    // inlined into Feed: it runs once per frame, and the call cost more
    // than the rest of an escape-free frame's handling (GCC kept it apart).
    template <class OnFrame>
    [[gnu::always_inline]] inline void Frame(const uint8_t* data, size_t length,
                                             const uint8_t* escape, OnFrame& on_frame);
    void AddPending(const uint8_t* data, size_t length);

    std::vector<uint8_t> scratch_;
    std::vector<uint8_t> pending_;
    bool pending_overflow_ = false;
    HdlcStats stats_;
};

template <class OnFrame>
void HdlcDeframer::Feed(const uint8_t* data, size_t length, OnFrame&& on_frame) {
    const uint8_t* p = data;
    const uint8_t* end = data + length;
    while (p < end) {
        // The next flag, noting the first escape on the way.
        const uint8_t* escape = nullptr;
        const uint8_t* flag = FindFlagOrEscape(p, end);
        while (flag != end && *flag == kHdlcEscape) {
            if (escape == nullptr) escape = flag;
            flag = FindFlagOrEscape(flag + 1, end);
        }
        if (flag == end) {
            AddPending(p, end - p);
            return;
        }
        if (pending_.empty() && !pending_overflow_) {
            Frame(p, flag - p, escape, on_frame);
        } else {
            AddPending(p, flag - p);
            if (pending_overflow_) {
                ++stats_.oversize;
            } else {
                const uint8_t* begin = pending_.data();
                const uint8_t* first = FindFlagOrEscape(begin, begin + pending_.size());
                Frame(begin, pending_.size(), first == begin + pending_.size() ? nullptr : first,
                      on_frame);
            }
            pending_.clear();
            pending_overflow_ = false;
        }
        p = flag + 1;
    }
}

template <class OnFrame>
void HdlcDeframer::Frame(const uint8_t* data, size_t length, const uint8_t* escape,
                         OnFrame& on_frame) {
    if (length == 0) return;  // a leading flag or two flags in a row: no frame at all
    const uint8_t* body = data;
    size_t size = length;
    if (escape != nullptr) {
        // Copy the run before each escape whole, then the escaped byte.
        const uint8_t* end = data + length;
        const uint8_t* from = data;
        uint8_t* out = scratch_.data();
        const size_t room = scratch_.size();
        size_t n = 0;
        for (;;) {
            size_t run = static_cast<size_t>(escape - from);
            if (run > room - n) {
                ++stats_.oversize;
                return;
            }
            std::memcpy(out + n, from, run);
            n += run;
            if (escape == end) break;
            if (n == room) {
                ++stats_.oversize;
                return;
            }
            if (escape + 1 == end) {
                ++stats_.stray_escape;
                return;
            }
            out[n++] = escape[1] ^ kHdlcEscapeXor;
            from = escape + 2;
            escape = FindFlagOrEscape(from, end);
        }
        body = out;
        size = n;
    } else if (length > kMaxHdlcFrame) {
        ++stats_.oversize;
        return;
    }
    if (size < 3) {
        ++stats_.too_short;
        return;
    }
    size -= 2;
    uint16_t stored = static_cast<uint16_t>(body[size] | body[size + 1] << 8);
    if (Crc16X25(body, size) != stored) {
        ++stats_.bad_crc;
        return;
    }
    ++stats_.good;
    on_frame(std::span<const uint8_t>(body, size));
}

}  // namespace dmux
