#include "platform/dmux/hdlc.h"

namespace dmux {

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
