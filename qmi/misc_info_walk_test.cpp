// The misc-information TLV walk over the 64-byte response: limits, warning
// lines, unknown TLVs, the five-TLV cap and the end of the buffer. The five
// values of a well-formed answer are Get3GPP2InfoTest's.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "platform/qnx/slogf.h"
#include "qmi/vendor_requests.h"

namespace {

using Response = uint8_t[kMiscInfoResponseSize];

std::string Line(const char* format_after_name, int a, int b = 0) {
    char text[256];
    std::string format = std::string("%30s : ") + format_after_name;
    std::snprintf(text, sizeof text, format.c_str(), "radio_tavora_vendor_misc_info", a, b);
    return text;
}

// Writes a TLV (type, length low byte, length high byte 0, value) at `at`.
size_t PutTlv(Response& r, size_t at, uint8_t type, uint8_t length, const char* value = nullptr,
              size_t value_length = 0) {
    r[at] = type;
    r[at + 1] = length;
    r[at + 2] = 0;
    for (size_t i = 0; i < value_length && at + 3 + i < kMiscInfoResponseSize; ++i)
        r[at + 3 + i] = static_cast<uint8_t>(value[i]);
    return at + 3 + value_length;
}

std::string Text(const char* field, size_t width) {
    size_t length = strnlen(field, width);
    return std::string(field, length);
}

class MiscInfoWalk : public testing::Test {
  protected:
    // On the heap and alone there, so that a read past its 64 bytes is
    // caught by the sanitizer build instead of landing in `record`.
    std::unique_ptr<uint8_t[]> storage = std::make_unique<uint8_t[]>(kMiscInfoResponseSize);
    Response& response = *reinterpret_cast<Response*>(storage.get());
    MiscInfo record = {};
    SlogCapture capture;
    void Walk() { DecodeMiscInfoResponse(response, &record); }
};

TEST_F(MiscInfoWalk, ModelOverTheLimitKeeps32AndLogsIt) {
    // 14 28 00 + 40 bytes at position 7: claims 40, the field holds 32.
    const char* model = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789wxyz";
    PutTlv(response, 7, 0x14, 40, model, 40);
    Walk();
    EXPECT_EQ(std::string(record.model, 32), std::string(model, 32));
    EXPECT_TRUE(capture.contains(
        Line("WARN: qmi_misc_MODEL_VAL exceeds the max recv-buf length: length = %d truncated to "
             "length = %d",
             40, 32)))
        << testing::PrintToString(capture.texts());
}

TEST_F(MiscInfoWalk, PesnPastTheMessageKeeps10AndLogsIt) {
    // 20 28 00 + 40 filler bytes at 7 (unknown, skipped) | 10 10 00 + 16 at 50.
    char filler[40];
    std::memset(filler, 'f', sizeof filler);
    size_t at = PutTlv(response, 7, 0x20, 40, filler, 40);
    ASSERT_EQ(at, 50u);
    PutTlv(response, at, 0x10, 16, "0123456789ABCDEF", 16);
    Walk();
    EXPECT_EQ(Text(record.pesn, 16), "0123456789");
    EXPECT_TRUE(capture.contains(Line(
        "WARN: Radio_Tavora: in QMI misc_info_resp_msg, unknown TLV detected and ignored: tlvType "
        "= 0x%02x, tlvLen = %d",
        0x20, 40)));
    EXPECT_TRUE(capture.contains(
        Line("WARN: qmi_misc_ESN_VAL exceeds its own msg length: truncated to length = %d", 10)));
}

TEST_F(MiscInfoWalk, OverLimitLinesOfPesnAndMobFw) {
    // 10 12 00 + 18 bytes | 13 0a 00 + 10 bytes
    size_t at = PutTlv(response, 7, 0x10, 18, "0123456789ABCDEFGH", 18);
    PutTlv(response, 7 + 3 + 16, 0x13, 10, "v123456789", 10);
    (void)at;
    Walk();
    EXPECT_EQ(std::string(record.pesn, 16), "0123456789ABCDEF");
    EXPECT_TRUE(capture.contains(
        Line("WARN: qmi_misc_ESN_VAL exceeds the max recv-buf length: length = %d, truncated to "
             "length = %d",
             18, 16)));
    // The walk went on at 7 + 3 + 16 = 26, where the 0x13 TLV starts.
    EXPECT_EQ(std::string(record.mob_fw, 8), "v1234567");
    EXPECT_TRUE(capture.contains(
        Line("WARN: qmi_misc_MOB_FW_VAL exceeds the max recv-buf length: length = %d, truncated "
             "to length = %d",
             10, 8)));
}

TEST_F(MiscInfoWalk, UnknownTlvBetweenKnownOnesIsSkipped) {
    // 10 04 00 "ABCD" | 20 02 00 ff ff | 12 01 00 07
    size_t at = PutTlv(response, 7, 0x10, 4, "ABCD", 4);
    at = PutTlv(response, at, 0x20, 2, "\xff\xff", 2);
    PutTlv(response, at, 0x12, 1, "\x07", 1);
    Walk();
    EXPECT_EQ(Text(record.pesn, 16), "ABCD");
    EXPECT_EQ(record.mob_p_rev, 7);
    const char* unknown =
        "WARN: Radio_Tavora: in QMI misc_info_resp_msg, unknown TLV detected and ignored: tlvType "
        "= 0x%02x, tlvLen = %d";
    std::vector<std::string> lines = capture.texts();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], Line(unknown, 0x20, 2));
    // With only two recognised TLVs the walk goes on through the zero
    // bytes after them (at 24, 27, ... 60; at 63 no header fits), each an
    // unknown TLV 0x00.
    EXPECT_EQ(lines.size(), 1u + (60 - 24) / 3 + 1);
    EXPECT_EQ(lines.back(), Line(unknown, 0x00, 0));
}

TEST_F(MiscInfoWalk, OnlyTheFirstFiveRecognisedTlvsAreTaken) {
    // 11 01 00 01 | 12 01 00 02 | 11 01 00 03 | 12 01 00 04 | 13 02 00 "fw" | 14 02 00 "md"
    size_t at = PutTlv(response, 7, 0x11, 1, "\x01", 1);
    at = PutTlv(response, at, 0x12, 1, "\x02", 1);
    at = PutTlv(response, at, 0x11, 1, "\x03", 1);
    at = PutTlv(response, at, 0x12, 1, "\x04", 1);
    at = PutTlv(response, at, 0x13, 2, "fw", 2);
    PutTlv(response, at, 0x14, 2, "md", 2);
    Walk();
    EXPECT_EQ(record.sci, 3);
    EXPECT_EQ(record.mob_p_rev, 4);
    EXPECT_EQ(Text(record.mob_fw, 8), "fw");
    EXPECT_EQ(Text(record.model, 32), "");
}

TEST_F(MiscInfoWalk, TlvEndingAtByte63EndsTheWalkWithoutReadingPastTheBuffer) {
    // 14 20 00 + 32 bytes at 7 | 13 08 00 + 8 at 42 | 20 07 00 + 7 at 53:
    // the last value runs to byte 62, the next position is 63, where no
    // 3-byte header fits; byte 63 holds 11, which must not be taken.
    char model[32];
    std::memset(model, 'm', sizeof model);
    size_t at = PutTlv(response, 7, 0x14, 32, model, 32);
    at = PutTlv(response, at, 0x13, 8, "fw-1.2.3", 8);  // ends at 53
    at = PutTlv(response, at, 0x20, 7, model, 7);       // unknown, ends at 63
    ASSERT_EQ(at, 63u);
    response[63] = 0x11;
    Walk();
    EXPECT_EQ(std::string(record.model, 32), std::string(32, 'm'));
    EXPECT_EQ(std::string(record.mob_fw, 8), "fw-1.2.3");
    EXPECT_EQ(record.sci, 0);
    EXPECT_EQ(capture.texts().size(), 1u);  // the unknown-TLV line only
}

TEST_F(MiscInfoWalk, ByteValueAtTheLastBytesAndBeyond) {
    // Unknown TLV filling 7..59, then 11 01 00 at 60 with its value at 63.
    char filler[50];
    std::memset(filler, 0, sizeof filler);
    size_t at = PutTlv(response, 7, 0x20, 50, filler, 50);
    ASSERT_EQ(at, 60u);
    PutTlv(response, at, 0x11, 1, "\x09", 1);
    Walk();
    EXPECT_EQ(record.sci, 9);
}

TEST_F(MiscInfoWalk, TextTlvWhoseValueWouldStartPastTheMessageCopiesNothing) {
    // Unknown TLV filling 7..60, then 10 05 00 at 61: value would start at 64.
    char filler[51] = {};
    PutTlv(response, 7, 0x20, 51, filler, 51);
    response[61] = 0x10;
    response[62] = 5;
    response[63] = 0;
    Walk();
    EXPECT_EQ(Text(record.pesn, 16), "");
    EXPECT_TRUE(capture.contains(
        Line("WARN: qmi_misc_ESN_VAL exceeds its own msg length: truncated to length = %d", 0)));
}

TEST_F(MiscInfoWalk, GarbageNeverReadsPastTheBuffer) {
    // A buffer of one byte value everywhere, for every value: the walk must
    // stay inside the 64 bytes (the sanitizer build checks) and finish.
    for (int fill = 0; fill < 256; ++fill) {
        std::memset(response, fill, sizeof response);
        std::memset(&record, 0, sizeof record);
        Walk();
        if (fill == 0x10) {
            // 10 10 10 ...: pesn TLVs claiming 16 bytes, each value 16 x 0x10.
            EXPECT_EQ(std::string(record.pesn, 16), std::string(16, '\x10'));
        }
        if (fill == 0x12) {
            EXPECT_EQ(record.mob_p_rev, 0x12);
        }
    }
}

}  // namespace
