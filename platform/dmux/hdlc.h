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
// One pass finds the flags and the escapes together and checks an
// escape-free frame's CRC on the way (ScanFrame); a frame with escapes is
// unescaped into a buffer of its own (UnescapeFrame), then checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "platform/dmux/hdlc_frame_scan.h"

namespace dmux {

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
    HdlcDeframer() : scratch_(kUnescapeRoom), pending_() { pending_.reserve(2 * kMaxHdlcFrame); }

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
    // An escape-free frame of `length` bytes (body and CRC), `checks`
    // whether its CRC does: counted, and delivered when good. Always
    // inlined: it runs once per frame, and a call costs about as much as
    // the rest of a short frame's handling.
    template <class OnFrame>
    [[gnu::always_inline]] inline void Checked(const uint8_t* frame, size_t length, bool checks,
                                               OnFrame& on_frame);
    // A frame unescaped into scratch_: counted, checked and delivered.
    template <class OnFrame>
    void Unescaped(const UnescapedFrame& frame, OnFrame& on_frame);
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
        if (pending_.empty() && !pending_overflow_) {
            // Most frames: no escape, all in these bytes, checked on the way.
            const FrameScan scan = ScanFrame(p, end);
            const uint8_t* stop = scan.stop;
            if (stop != end && *stop == kHdlcFlag) {
                Checked(p, stop - p, scan.checks, on_frame);
            } else if (stop != end) {  // an escape
                const UnescapedFrame frame = UnescapeFrame(p, end, scratch_.data());
                stop = frame.stop;
                if (stop != end) Unescaped(frame, on_frame);
            }
            if (stop == end) {
                AddPending(p, end - p);
                return;
            }
            p = stop + 1;
            continue;
        }
        // The rest of a frame begun in earlier bytes: an escape never
        // hides a flag, so the first flag ends it.
        const uint8_t* flag = static_cast<const uint8_t*>(std::memchr(p, kHdlcFlag, end - p));
        if (flag == nullptr) {
            AddPending(p, end - p);
            return;
        }
        AddPending(p, flag - p);
        if (pending_overflow_) {
            ++stats_.oversize;
        } else {
            const uint8_t* begin = pending_.data();
            Unescaped(UnescapeFrame(begin, begin + pending_.size(), scratch_.data()), on_frame);
        }
        pending_.clear();
        pending_overflow_ = false;
        p = flag + 1;
    }
}

template <class OnFrame>
void HdlcDeframer::Unescaped(const UnescapedFrame& frame, OnFrame& on_frame) {
    if (frame.fault == FrameFault::kOversize) {
        ++stats_.oversize;
    } else if (frame.fault == FrameFault::kStrayEscape) {
        ++stats_.stray_escape;
    } else {
        Checked(scratch_.data(), frame.length, FrameChecks(scratch_.data(), frame.length),
                on_frame);
    }
}

template <class OnFrame>
void HdlcDeframer::Checked(const uint8_t* frame, size_t length, bool checks, OnFrame& on_frame) {
    if (length == 0) return;  // a leading flag or two flags in a row: no frame at all
    if (length > kMaxHdlcFrame) {
        ++stats_.oversize;
    } else if (length < 3) {
        ++stats_.too_short;
    } else if (!checks) {
        ++stats_.bad_crc;
    } else {
        ++stats_.good;
        on_frame(std::span<const uint8_t>(frame, length - 2));
    }
}

}  // namespace dmux
