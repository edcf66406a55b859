// Little-endian bytes for the modem protocols (QMUX, DIAG): a checked
// cursor for reading, and appends for building.
//
// Every read either takes bytes that are there and advances, or fails and
// leaves the cursor where it was: nothing is read past the end, whatever a
// length field in the input says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace rt {

class ByteReader {
  public:
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t position() const { return position_; }
    size_t remaining() const { return bytes_.size() - position_; }

    bool U8(uint8_t* value) { return Read(value); }
    bool U16(uint16_t* value) { return Read(value); }
    bool U32(uint32_t* value) { return Read(value); }
    bool U64(uint64_t* value) { return Read(value); }
    bool Skip(size_t count) {
        if (remaining() < count) return false;
        position_ += count;
        return true;
    }
    // Exactly `count` bytes, or false.
    bool Bytes(size_t count, std::span<const uint8_t>* out) {
        if (remaining() < count) return false;
        *out = bytes_.subspan(position_, count);
        position_ += count;
        return true;
    }
    // Up to `count` bytes: fewer when the input ends first.
    std::span<const uint8_t> Take(size_t count) {
        if (count > remaining()) count = remaining();
        std::span<const uint8_t> out = bytes_.subspan(position_, count);
        position_ += count;
        return out;
    }
    std::span<const uint8_t> Rest() { return Take(remaining()); }

  private:
    template <class T>
    bool Read(T* value) {
        if (remaining() < sizeof(T)) return false;
        T v = 0;
        for (size_t i = sizeof(T); i-- > 0;) v = static_cast<T>((v << 8) | bytes_[position_ + i]);
        *value = v;
        position_ += sizeof(T);
        return true;
    }

    std::span<const uint8_t> bytes_;
    size_t position_ = 0;
};

template <class T>
void PutLittleEndian(std::vector<uint8_t>* out, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) out->push_back(static_cast<uint8_t>(value >> (8 * i)));
}
inline void PutU16(std::vector<uint8_t>* out, uint16_t value) {
    PutLittleEndian(out, value);
}
inline void PutU32(std::vector<uint8_t>* out, uint32_t value) {
    PutLittleEndian(out, value);
}
inline void PutU64(std::vector<uint8_t>* out, uint64_t value) {
    PutLittleEndian(out, value);
}

}  // namespace rt
