// Finding where an HDLC frame of the DIAG port ends, and whether it checks.
//
// ScanFrame looks from a frame's first byte for the first flag (0x7E) or
// escape (0x7D). When it stops at a flag, the bytes before it are a whole
// escape-free frame, and ScanFrame has checked its CRC on the way: where
// the CPU has 512-bit carry-less multiplication the CRC is folded in from
// the same 64-byte loads that look for the flag, so the bytes of most
// frames are read once, and a frame costs one call. A frame with escapes
// is unescaped by UnescapeFrame, then checked whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/dmux/crc16.h"

namespace dmux {

inline constexpr uint8_t kHdlcFlag = 0x7E;
inline constexpr uint8_t kHdlcEscape = 0x7D;
inline constexpr uint8_t kHdlcEscapeXor = 0x20;

// Largest unescaped frame (body and CRC) accepted: a log packet's 16-bit
// length, its command header, a multi-SIM wrapper and the CRC.
inline constexpr size_t kMaxHdlcFrame = 65535 + 4 + 8 + 2;

// An unescaped frame (body and CRC) of a size the deframer accepts, whose
// CRC checks.
inline bool FrameChecks(const uint8_t* frame, size_t length) {
    return length >= 3 && length <= kMaxHdlcFrame && Crc16X25(frame, length) == kCrc16X25Residue;
}

struct FrameScan {
    const uint8_t* stop;  // the first flag or escape from the frame's start, or end
    bool checks;          // stop is a flag, and FrameChecks holds for the bytes before it
};

FrameScan ScanFrame(const uint8_t* begin, const uint8_t* end);

// Every implementation this CPU can run, the one ScanFrame uses last, so
// that a test checks each.
using FrameScanFunction = FrameScan (*)(const uint8_t* begin, const uint8_t* end);
std::vector<FrameScanFunction> FrameScanImplementations();

// A frame with escapes, or one that came in pieces, is unescaped into a
// buffer of kUnescapeRoom bytes: the largest frame, and room for a wide
// store to write past what it keeps.
inline constexpr size_t kUnescapeRoom = kMaxHdlcFrame + 64;

enum class FrameFault : uint8_t {
    kNone,
    kOversize,     // more than kMaxHdlcFrame bytes unescaped (a stray escape counting one)
    kStrayEscape,  // an escape right before the flag, or last of the bytes
};

struct UnescapedFrame {
    const uint8_t* stop;  // the flag that ends the frame, or end
    size_t length;        // bytes unescaped into the buffer, when there is no fault
    FrameFault fault;
};

// Unescapes [begin, the first flag or end) into `out` (kUnescapeRoom
// bytes): each 0x7D and the byte after it become that byte XOR 0x20.
UnescapedFrame UnescapeFrame(const uint8_t* begin, const uint8_t* end, uint8_t* out);

using FrameUnescapeFunction = UnescapedFrame (*)(const uint8_t* begin, const uint8_t* end,
                                                 uint8_t* out);
std::vector<FrameUnescapeFunction> FrameUnescapeImplementations();

}  // namespace dmux
