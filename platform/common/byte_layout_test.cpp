#include "platform/common/byte_layout.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Each write goes into four bytes of 0xEE: one that fits is little-endian
// and read back whole by FieldReader; one that does not fit changes no byte
// and leaves the writer failed.
TEST(FieldWriter, WritesWholeFieldsOrNothing) {
    struct Case {
        const char* what;
        bool (*write)(rt::FieldWriter&);
        bool fits;
        Bytes after;
    };
    const Case cases[] = {
        {"u16 at the end",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<uint16_t>{2}, 0x1234); },
         true,
         {0xEE, 0xEE, 0x34, 0x12}},
        {"s16 as two's complement",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<int16_t>{0}, -2); },
         true,
         {0xFE, 0xFF, 0xEE, 0xEE}},
        {"u32 filling it",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<uint32_t>{0}, 0xA1B2C3D4); },
         true,
         {0xD4, 0xC3, 0xB2, 0xA1}},
        {"u16 straddling the end",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<uint16_t>{3}, 0x1234); },
         false,
         {0xEE, 0xEE, 0xEE, 0xEE}},
        {"u8 past the end",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<uint8_t>{4}, 1); },
         false,
         {0xEE, 0xEE, 0xEE, 0xEE}},
        {"u64 longer than it",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<uint64_t>{0}, 1); },
         false,
         {0xEE, 0xEE, 0xEE, 0xEE}},
        {"offset near SIZE_MAX",
         [](rt::FieldWriter& w) { return w.Write(rt::Field<uint16_t>{SIZE_MAX - 1}, 1); },
         false,
         {0xEE, 0xEE, 0xEE, 0xEE}},
        {"bytes straddling the end",
         [](rt::FieldWriter& w) {
             return w.WriteBytes(2, Bytes{1, 2, 3});
         },
         false,
         {0xEE, 0xEE, 0xEE, 0xEE}},
        {"bytes at the end",
         [](rt::FieldWriter& w) {
             return w.WriteBytes(1, Bytes{1, 2, 3});
         },
         true,
         {0xEE, 1, 2, 3}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes bytes(4, 0xEE);
        rt::FieldWriter writer(bytes);
        EXPECT_EQ(c.write(writer), c.fits);
        EXPECT_EQ(writer.ok(), c.fits);
        EXPECT_EQ(bytes, c.after);
    }
    Bytes bytes(4, 0);
    rt::FieldWriter(bytes).Write(rt::Field<int16_t>{1}, -300);
    EXPECT_EQ(rt::FieldReader(bytes).Read(rt::Field<int16_t>{1}), -300);
}

}  // namespace
