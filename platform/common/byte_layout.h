// Binary layouts as data: a field is its type and its offset, and a layout
// is a struct of named fields (see platform/dmux/log_layouts.h). FieldReader
// reads a field through the checked ByteReader, so a field that does not
// lie wholly inside the bytes reads as absent, never as a stray byte;
// FieldWriter writes one the same way round, and a field that does not fit
// is not written at all.
//
//   struct Example {
//       static constexpr rt::Field<uint16_t> kCount{12};
//       static constexpr rt::Field<int16_t> Rscp(size_t k) { return {26 + 10 * k + 4}; }
//   };
//   rt::FieldReader reader(bytes);
//   uint16_t count = reader.Get(Example::kCount);       // 0 when absent
//   std::optional<int16_t> rscp = reader.Read(Example::Rscp(3));
//   rt::FieldWriter writer(buffer);
//   writer.Write(Example::kCount, 2);                   // false when it does not fit
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <type_traits>

#include "platform/common/byte_reader.h"

namespace rt {

// A little-endian integer of type T at a byte offset; signed types are
// read as the two's complement of the same width.
template <class T>
struct Field {
    static_assert(std::is_integral_v<T> && sizeof(T) <= 8, "fields are integers");
    size_t offset;

    // The same field of an entry (a list entry, a block) that starts at
    // byte `start`, when the field's offset is from the entry's start.
    constexpr Field<T> In(size_t start) const { return {start + offset}; }
};

// Bits `first` to `first + count - 1` of an unsigned field.
template <class T>
struct Bits {
    static_assert(std::is_unsigned_v<T>, "bit fields are read from unsigned words");
    Field<T> field;
    unsigned first;
    unsigned count;
    constexpr T Of(T word) const { return (word >> first) & static_cast<T>((T{1} << count) - 1); }
};

class FieldReader {
  public:
    explicit FieldReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t size() const { return bytes_.size(); }

    template <class T>
    std::optional<T> Read(Field<T> field) const {
        using Unsigned = std::make_unsigned_t<T>;
        if (field.offset > bytes_.size()) return std::nullopt;
        ByteReader reader(bytes_.subspan(field.offset));
        Unsigned raw = 0;
        bool ok;
        if constexpr (sizeof(T) == 1) {
            ok = reader.U8(&raw);
        } else if constexpr (sizeof(T) == 2) {
            ok = reader.U16(&raw);
        } else if constexpr (sizeof(T) == 4) {
            ok = reader.U32(&raw);
        } else {
            ok = reader.U64(&raw);
        }
        if (!ok) return std::nullopt;
        return std::bit_cast<T>(raw);
    }

    // The field's value, or 0 when it lies past the end.
    template <class T>
    T Get(Field<T> field) const {
        return Read(field).value_or(T{0});
    }

  private:
    std::span<const uint8_t> bytes_;
};

// Writes fields little-endian into bytes it does not own. A field that does
// not lie wholly inside the bytes writes nothing, not even in part: the
// write returns false and the writer stays failed, so a caller can check
// once after many writes (or ignore it, to state a layout longer than the
// buffer).
class FieldWriter {
  public:
    explicit FieldWriter(std::span<uint8_t> bytes) : bytes_(bytes) {}

    size_t size() const { return bytes_.size(); }
    // False once any write did not fit.
    bool ok() const { return ok_; }

    // Signed values are written as the two's complement of the field's
    // width; a wider value keeps its low bytes.
    template <class T>
    bool Write(Field<T> field, std::type_identity_t<T> value) {
        const auto raw = static_cast<std::make_unsigned_t<T>>(value);
        if (!Fits(field.offset, sizeof(T))) return false;
        for (size_t i = 0; i < sizeof(T); ++i)
            bytes_[field.offset + i] = static_cast<uint8_t>(raw >> (8 * i));
        return true;
    }

    // Bytes as they are (BCD octets, big-endian identities) from `offset`.
    bool WriteBytes(size_t offset, std::span<const uint8_t> bytes) {
        if (!Fits(offset, bytes.size())) return false;
        std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<ptrdiff_t>(offset));
        return true;
    }

  private:
    bool Fits(size_t offset, size_t width) {
        if (offset <= bytes_.size() && width <= bytes_.size() - offset) return true;
        ok_ = false;
        return false;
    }

    std::span<uint8_t> bytes_;
    bool ok_ = true;
};

}  // namespace rt
