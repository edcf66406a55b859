// libFuzzer target: any bytes through the HDLC deframer, fed in chunks whose
// sizes the input's first byte chooses; every frame body is read end to end.
// From each frame start, every implementation of the frame scan and of the
// unescaping this CPU runs must read as the first (the portable one) does.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/dmux/hdlc.h"

namespace {

void CompareImplementations(const uint8_t* begin, const uint8_t* end) {
    static const auto scans = dmux::FrameScanImplementations();
    static const auto unescapes = dmux::FrameUnescapeImplementations();
    static std::vector<uint8_t> want_bytes(dmux::kUnescapeRoom), got_bytes(dmux::kUnescapeRoom);
    const dmux::FrameScan want_scan = scans.front()(begin, end);
    for (auto scan : scans) {
        dmux::FrameScan got = scan(begin, end);
        if (got.stop != want_scan.stop || got.checks != want_scan.checks) std::abort();
    }
    const dmux::UnescapedFrame want = unescapes.front()(begin, end, want_bytes.data());
    for (auto unescape : unescapes) {
        dmux::UnescapedFrame got = unescape(begin, end, got_bytes.data());
        if (got.stop != want.stop || got.fault != want.fault) std::abort();
        if (want.fault == dmux::FrameFault::kNone &&
            (got.length != want.length ||
             std::memcmp(got_bytes.data(), want_bytes.data(), want.length) != 0))
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    size_t chunk = 1 + data[0];
    ++data;
    --size;
    dmux::HdlcDeframer deframer;
    volatile uint8_t sum = 0;
    for (size_t at = 0; at < size; at += chunk) {
        size_t length = size - at < chunk ? size - at : chunk;
        deframer.Feed(data + at, length, [&](std::span<const uint8_t> body) {
            for (uint8_t byte : body) sum = static_cast<uint8_t>(sum + byte);
        });
    }
    deframer.Finish();

    const uint8_t* end = data + size;
    for (const uint8_t* start = data; start < end; ++start) {
        CompareImplementations(start, end);
        start = static_cast<const uint8_t*>(std::memchr(start, dmux::kHdlcFlag, end - start));
        if (start == nullptr) break;
    }
    return 0;
}
