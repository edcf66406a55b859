// A checked cursor over a byte buffer: every read either succeeds and
// advances, or fails and leaves the cursor where it was. Nothing is read
// past the end, whatever a length field says. Little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qmux {

class ByteReader {
public:
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t position() const { return position_; }
    size_t remaining() const { return bytes_.size() - position_; }

    bool U8(uint8_t* value) {
        if (remaining() < 1) return false;
        *value = bytes_[position_++];
        return true;
    }
    bool U16(uint16_t* value) {
        if (remaining() < 2) return false;
        *value = static_cast<uint16_t>(bytes_[position_] | (bytes_[position_ + 1] << 8));
        position_ += 2;
        return true;
    }
    bool Bytes(size_t count, std::span<const uint8_t>* out) {
        if (remaining() < count) return false;
        *out = bytes_.subspan(position_, count);
        position_ += count;
        return true;
    }
    std::span<const uint8_t> Rest() {
        std::span<const uint8_t> rest = bytes_.subspan(position_);
        position_ = bytes_.size();
        return rest;
    }

private:
    std::span<const uint8_t> bytes_;
    size_t position_ = 0;
};

}  // namespace qmux
