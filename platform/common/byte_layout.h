// Binary layouts as data: a field is its type and its offset, and a layout
// is a struct of named fields (see platform/dmux/log_layouts.h). FieldReader
// reads a field through the checked ByteReader, so a field that does not
// lie wholly inside the bytes reads as absent, never as a stray byte.
//
//   struct Example {
//       static constexpr rt::Field<uint16_t> kCount{12};
//       static constexpr rt::Field<int16_t> Rscp(size_t k) { return {26 + 10 * k + 4}; }
//   };
//   rt::FieldReader reader(bytes);
//   uint16_t count = reader.Get(Example::kCount);       // 0 when absent
//   std::optional<int16_t> rscp = reader.Read(Example::Rscp(3));
#pragma once

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

}  // namespace rt
