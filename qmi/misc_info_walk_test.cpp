// The misc-information TLV walk over the 64-byte response: limits, warning
// lines, unknown TLVs, the five-TLV cap and the end of the buffer. The five
// values of a well-formed answer are Get3GPP2InfoTest's.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/qnx/slogf.h"
#include "qmi/vendor_requests.h"
#include "testsupport/qmi_test_support.h"

namespace {

std::string Line(const char* rest, int a, int b = 0) {
    return qmi_test::Line("radio_tavora_vendor_misc_info", rest, a, b);
}
const char* const kUnknown =
    "WARN: Radio_Tavora: in QMI misc_info_resp_msg, unknown TLV detected and ignored: tlvType "
    "= 0x%02x, tlvLen = %d";
const char* const kPesnPastTheMessage =
    "WARN: qmi_misc_ESN_VAL exceeds its own msg length: truncated to length = %d";

// A TLV as written at `at`: type, length low byte, length high byte 0, then
// `value` (which may be shorter or longer than `length` says); whatever
// would land past the 64 bytes is not written.
struct Tlv {
    size_t at;
    uint8_t type, length;
    std::string value;
};

std::string Text(const char* field, size_t width) {
    return std::string(field, strnlen(field, width));
}

class MiscInfoWalk : public testing::Test {
  protected:
    // On the heap and alone there, so that a read past its 64 bytes is
    // caught by the sanitizer build instead of landing in `record`.
    std::unique_ptr<uint8_t[]> storage = std::make_unique<uint8_t[]>(kMiscInfoResponseSize);
    uint8_t (&response)[kMiscInfoResponseSize] =
        *reinterpret_cast<uint8_t (*)[kMiscInfoResponseSize]>(storage.get());
    MiscInfo record = {};
    SlogCapture capture;
    void Walk() { DecodeMiscInfoResponse(response, &record); }
};

// The record's fields that are not empty or 0, as "name=value ...".
std::string Filled(const MiscInfo& r) {
    std::string out;
    auto add = [&](const char* name, const std::string& value) {
        if (!value.empty() && value != "0")
            out += std::string(out.empty() ? "" : " ") + name + "=" + value;
    };
    add("pesn", Text(r.pesn, 16));
    add("sci", std::to_string(r.sci));
    add("rev", std::to_string(r.mob_p_rev));
    add("fw", Text(r.mob_fw, 8));
    add("model", Text(r.model, 32));
    return out;
}

struct WalkCase {
    std::vector<Tlv> tlvs;
    std::string filled;               // Filled(record) after the walk
    std::vector<std::string> logged;  // among the lines
    int line_count = -1;              // -1: not checked
};

TEST_F(MiscInfoWalk, LimitsUnknownTlvsAndTheEnd) {
    const std::string m32(32, 'm'), zeros(51, '\0');
    const std::string model = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789wxyz";
    const WalkCase cases[] = {
        // Claims 40, the field holds 32.
        {{{7, 0x14, 40, model}},
         "model=" + model.substr(0, 32),
         {Line("WARN: qmi_misc_MODEL_VAL exceeds the max recv-buf length: length = %d truncated "
               "to length = %d",
               40, 32)}},
        // An unknown TLV of 40 at 7 is skipped; the ESN at 50 has 10 bytes
        // before the end.
        {{{7, 0x20, 40, std::string(40, 'f')}, {50, 0x10, 16, "0123456789ABCDEF"}},
         "pesn=0123456789",
         {Line(kUnknown, 0x20, 40), Line(kPesnPastTheMessage, 10)}},
        // The walk goes on at 7 + 3 + 16 = 26, where the 0x13 TLV starts.
        {{{7, 0x10, 18, "0123456789ABCDEFGH"}, {26, 0x13, 10, "v123456789"}},
         "pesn=0123456789ABCDEF fw=v1234567",
         {Line("WARN: qmi_misc_ESN_VAL exceeds the max recv-buf length: length = %d, truncated "
               "to length = %d",
               18, 16),
          Line("WARN: qmi_misc_MOB_FW_VAL exceeds the max recv-buf length: length = %d, "
               "truncated to length = %d",
               10, 8)}},
        // With only two recognised TLVs the walk goes on through the zero
        // bytes after them (at 24, 27, ... 60; at 63 no header fits), each
        // an unknown TLV 0x00.
        {{{7, 0x10, 4, "ABCD"}, {14, 0x20, 2, "\xff\xff"}, {19, 0x12, 1, "\x07"}},
         "pesn=ABCD rev=7",
         {Line(kUnknown, 0x20, 2), Line(kUnknown, 0x00, 0)},
         1 + (60 - 24) / 3 + 1},
        // Only the first five recognised TLVs are taken.
        {{{7, 0x11, 1, "\x01"},
          {11, 0x12, 1, "\x02"},
          {15, 0x11, 1, "\x03"},
          {19, 0x12, 1, "\x04"},
          {23, 0x13, 2, "fw"},
          {28, 0x14, 2, "md"}},
         "sci=3 rev=4 fw=fw",
         {}},
        // The last value runs to byte 62; at 63 no 3-byte header fits, and
        // the 11 there must not be taken.
        {{{7, 0x14, 32, m32},
          {42, 0x13, 8, "fw-1.2.3"},
          {53, 0x20, 7, "mmmmmmm"},
          {63, 0x11, 0, ""}},
         "fw=fw-1.2.3 model=" + m32,
         {Line(kUnknown, 0x20, 7)},
         1},
        // A byte value in the last byte.
        {{{7, 0x20, 50, zeros.substr(0, 50)}, {60, 0x11, 1, "\x09"}}, "sci=9", {}},
        // 10 05 00 at 61: the value would start at 64, nothing is copied.
        {{{7, 0x20, 51, zeros}, {61, 0x10, 5, ""}}, "", {Line(kPesnPastTheMessage, 0)}},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const WalkCase& c = cases[i];
        SCOPED_TRACE("case " + std::to_string(i) + ": " + c.filled);
        std::memset(response, 0, sizeof response);
        record = {};
        capture.clear();
        for (const Tlv& tlv : c.tlvs) {
            std::string bytes = std::string{char(tlv.type), char(tlv.length), 0} + tlv.value;
            for (size_t i = 0; i < bytes.size() && tlv.at + i < kMiscInfoResponseSize; ++i)
                response[tlv.at + i] = static_cast<uint8_t>(bytes[i]);
        }
        Walk();
        EXPECT_EQ(Filled(record), c.filled);
        const std::vector<std::string> lines = capture.texts();
        for (const std::string& line : c.logged)
            EXPECT_TRUE(capture.contains(line)) << line << "\n" << testing::PrintToString(lines);
        if (c.line_count >= 0) {
            EXPECT_EQ(lines.size(), static_cast<size_t>(c.line_count));
        }
    }
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
