#include "platform/dmux/diag_packet.h"

#include <gtest/gtest.h>

#include "platform/dmux/diag_stream.h"
#include "platform/dmux/log_code_mask.h"
#include "testsupport/diag_capture_builder.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(ParseDiagFrame, LogPacket) {
    // 10 00 0d 00 | 0d 00 25 41 | ts 8 bytes | 03
    Bytes record = rt::test::DiagLogRecord(0x4125, {0x03}, 0x1122334455667788);
    Bytes body = rt::test::DiagLogPacketBody(record);
    auto frame = dmux::ParseDiagFrame(body);
    EXPECT_EQ(frame.kind, dmux::DiagFrameKind::kLogPacket);
    EXPECT_EQ(frame.log_code, 0x4125);
    EXPECT_FALSE(frame.wrapped);
    EXPECT_EQ(Bytes(frame.record.begin(), frame.record.end()), record);
    EXPECT_EQ(dmux::LogRecordTimestamp(frame.record), 0x1122334455667788u);
}

TEST(ParseDiagFrame, LengthPastEndIsCutToTheFrame) {
    Bytes body = rt::test::DiagLogPacketBody(rt::test::DiagLogRecord(0x4125, {1, 2}));
    body[2] = 0xFF;  // outer length 0x00FF, far past the 14 record bytes
    auto frame = dmux::ParseDiagFrame(body);
    EXPECT_EQ(frame.kind, dmux::DiagFrameKind::kLogPacket);
    EXPECT_EQ(frame.record.size(), 14u);
}

TEST(ParseDiagFrame, ShortLogPacketIsMalformed) {
    // 10 00 0c 00 + 5 bytes: no room for the 12-byte record header
    auto frame = dmux::ParseDiagFrame(Bytes{0x10, 0x00, 0x0C, 0x00, 1, 2, 3, 4, 5});
    EXPECT_EQ(frame.kind, dmux::DiagFrameKind::kMalformed);
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0x10}).kind, dmux::DiagFrameKind::kMalformed);
}

TEST(ParseDiagFrame, OtherKindsAreSkipped) {
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0xEE, 0xEE, 5, 0, 0, 0}).kind,
              dmux::DiagFrameKind::kMarker);
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0x92, 1, 2}).kind, dmux::DiagFrameKind::kOther);
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0x79, 1, 2}).kind, dmux::DiagFrameKind::kOther);
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0x73, 0, 0, 0}).kind, dmux::DiagFrameKind::kLogConfig);
    // wrapper around something that is not a log packet
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0x98, 1, 0, 0, 1, 0, 0, 0, 0x79, 0}).kind,
              dmux::DiagFrameKind::kOther);
    // wrapper cut short
    EXPECT_EQ(dmux::ParseDiagFrame(Bytes{0x98, 1, 0, 0, 1}).kind, dmux::DiagFrameKind::kOther);
}

TEST(LogConfig, SetMaskCommandLayout) {
    Bytes mask(479, 0);
    mask[38] = 0x63;
    Bytes body = dmux::BuildLogConfigSetMask(7, 0x74FF, mask);
    // 73 00 00 00 | 03 00 00 00 | 07 00 00 00 | ff 74 00 00 | 479 mask bytes
    ASSERT_EQ(body.size(), 16u + 479u);
    EXPECT_EQ(Bytes(body.begin(), body.begin() + 16),
              (Bytes{0x73, 0, 0, 0, 3, 0, 0, 0, 7, 0, 0, 0, 0xFF, 0x74, 0, 0}));
    auto parsed = dmux::ParseLogConfigSetMask(body);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(parsed->equipment_id, 7u);
    EXPECT_EQ(parsed->last_item, 0x74FFu);
    EXPECT_EQ(parsed->mask, mask);
}

TEST(LogConfig, MalformedSetMask) {
    EXPECT_FALSE(dmux::ParseLogConfigSetMask(Bytes{0x73, 0, 0, 0, 3, 0, 0, 0, 7}).has_value());
    EXPECT_FALSE(
        dmux::ParseLogConfigSetMask(Bytes{0x73, 0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0, 0, 0, 0, 0})
            .has_value());  // operation 1 is not set-mask
    EXPECT_FALSE(dmux::ParseLogConfigResponse(Bytes{0x73, 0, 0}).has_value());
}

TEST(LogCodeMask, EquipmentMaskSetsAndReplacesBits) {
    dmux::LogCodeMask mask;
    Bytes bits(479, 0);
    bits[0x125 >> 3] = 1 << (0x125 & 7);
    mask.SetEquipment(4, 0x4777, bits);
    EXPECT_TRUE(mask.Enabled(0x4125));
    EXPECT_FALSE(mask.Enabled(0x4124));
    EXPECT_FALSE(mask.Enabled(0x7125));
    EXPECT_TRUE(mask.Any());
    mask.SetEquipment(4, 0x4777, Bytes(479, 0));
    EXPECT_FALSE(mask.Enabled(0x4125));
    EXPECT_FALSE(mask.Any());
}

TEST(LogCodeMask, ItemsPastLastItemOrPastTheBytesStayOff) {
    dmux::LogCodeMask mask;
    mask.SetEquipment(11, 0xB010, Bytes(479, 0xFF));
    EXPECT_TRUE(mask.Enabled(0xB010));
    EXPECT_FALSE(mask.Enabled(0xB011));
    mask.SetEquipment(7, 0x7FFF, Bytes(2, 0xFF));  // 16 items of bits only
    EXPECT_TRUE(mask.Enabled(0x700F));
    EXPECT_FALSE(mask.Enabled(0x7010));
    mask.SetEquipment(16, 0xFFF, Bytes(479, 0xFF));  // no such equipment id: ignored
    EXPECT_FALSE(mask.Enabled(0x0000));
}

TEST(DiagStream, DeliversOnlyEnabledCodesAndSkipsOtherFrames) {
    rt::test::DiagCaptureBuilder capture;
    capture.Log(0x4125, {3})
        .Frame({0x92, 1, 2, 3})
        .Log(0x4110, {1})
        .Frame({0xEE, 0xEE, 5, 0, 0, 0})
        .Log(0x4125, {2}, 0, 1)
        .LogWithBadCrc(0x4125, {5});
    dmux::LogCodeMask mask;
    mask.Enable(0x4125, true);
    std::vector<Bytes> got;
    dmux::DiagStream stream(
        &mask,
        [](void* ctx, uint16_t code, std::span<const uint8_t> record) {
            EXPECT_EQ(code, 0x4125);
            static_cast<std::vector<Bytes>*>(ctx)->emplace_back(record.begin(), record.end());
        },
        &got);
    stream.Feed(capture.bytes());
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].back(), 3);
    EXPECT_EQ(got[1].back(), 2);
    EXPECT_EQ(stream.stats().log_packets, 3u);
    EXPECT_EQ(stream.stats().wrapped, 1u);
    EXPECT_EQ(stream.stats().markers, 1u);
    EXPECT_EQ(stream.stats().other, 1u);
    EXPECT_EQ(stream.frames().bad_crc, 1u);
}

}  // namespace
