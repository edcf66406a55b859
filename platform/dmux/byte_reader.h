// A checked little-endian cursor over a byte span: every read either takes
// bytes that are there and advances, or fails and leaves the cursor alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace dmux {

class ByteReader {
public:
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t remaining() const { return bytes_.size() - pos_; }
    size_t position() const { return pos_; }

    std::optional<uint8_t> U8() {
        if (remaining() < 1) return std::nullopt;
        return bytes_[pos_++];
    }
    std::optional<uint16_t> U16() {
        if (remaining() < 2) return std::nullopt;
        uint16_t v = static_cast<uint16_t>(bytes_[pos_] | bytes_[pos_ + 1] << 8);
        pos_ += 2;
        return v;
    }
    std::optional<uint32_t> U32() {
        if (remaining() < 4) return std::nullopt;
        uint32_t v = 0;
        for (int i = 3; i >= 0; --i) v = v << 8 | bytes_[pos_ + i];
        pos_ += 4;
        return v;
    }
    std::optional<uint64_t> U64() {
        if (remaining() < 8) return std::nullopt;
        uint64_t v = 0;
        for (int i = 7; i >= 0; --i) v = v << 8 | bytes_[pos_ + i];
        pos_ += 8;
        return v;
    }
    bool Skip(size_t n) {
        if (remaining() < n) return false;
        pos_ += n;
        return true;
    }
    // Up to n bytes (fewer when the span ends first).
    std::span<const uint8_t> Take(size_t n) {
        if (n > remaining()) n = remaining();
        auto out = bytes_.subspan(pos_, n);
        pos_ += n;
        return out;
    }
    std::span<const uint8_t> Rest() { return Take(remaining()); }

private:
    std::span<const uint8_t> bytes_;
    size_t pos_ = 0;
};

// Little-endian appends for building packets.
inline void PutU16(std::vector<uint8_t>* out, uint16_t v) {
    out->push_back(static_cast<uint8_t>(v));
    out->push_back(static_cast<uint8_t>(v >> 8));
}
inline void PutU32(std::vector<uint8_t>* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}
inline void PutU64(std::vector<uint8_t>* out, uint64_t v) {
    for (int i = 0; i < 8; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

}  // namespace dmux
