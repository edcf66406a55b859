#include "platform/pps/pps_decoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "platform/pps/pps_encoder.h"

namespace {

// A decoder over a private copy of the text (parsing cuts it in place).
class Decoded {
  public:
    explicit Decoded(const std::string& text) : buf_(text.begin(), text.end()) {
        buf_.push_back('\0');
        EXPECT_EQ(pps_decoder_initialize(&dec_, nullptr), PPS_DECODER_OK);
        status_ = pps_decoder_parse_pps_str(&dec_, buf_.data());
    }
    ~Decoded() { pps_decoder_cleanup(&dec_); }
    pps_decoder_t* operator&() { return &dec_; }
    pps_decoder_error_t status() const { return status_; }

  private:
    std::vector<char> buf_;
    pps_decoder_t dec_;
    pps_decoder_error_t status_;
};

TEST(PpsDecoder, ConfigDeltaTypesAndDeletions) {
    Decoded dec("@config\ndiaglogmask:n:1\ntether_enable::1\n-ens_value\nims_enable:b:true\n");
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    const char* s = nullptr;
    // A number is not a string: the daemon must not take it as a setting.
    EXPECT_EQ(pps_decoder_get_string(&dec, "diaglogmask", &s), PPS_DECODER_WRONG_TYPE);
    EXPECT_EQ(pps_decoder_get_string(&dec, "tether_enable", &s), PPS_DECODER_OK);
    EXPECT_STREQ(s, "1");
    EXPECT_EQ(pps_decoder_type(&dec, "ens_value"), PPS_TYPE_DELETED);
    EXPECT_NE(pps_decoder_get_string(&dec, "ens_value", &s), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_type(&dec, "ims_enable"), PPS_TYPE_BOOL);
    EXPECT_EQ(pps_decoder_type(&dec, "diaglogmask"), PPS_TYPE_NUMBER);
    EXPECT_EQ(pps_decoder_type(&dec, "nothing"), PPS_TYPE_NONE);
    int n = 0;
    EXPECT_EQ(pps_decoder_get_int(&dec, "tether_enable", &n), PPS_DECODER_WRONG_TYPE);
}

TEST(PpsDecoder, JsonAttributesBecomeObjectsAndArrays) {
    Decoded dec(
        "@status_persistent\n"
        "configure_rats_state:json:{\"enabled_technologies\":18,\"ok\":true}\n"
        "ip_addresses:json:[\"10.0.0.2/24\",7,\"fe80::1/64\"]\n");
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, "configure_rats_state"), PPS_DECODER_OK);
    int rats = 0;
    EXPECT_EQ(pps_decoder_get_int(&dec, "enabled_technologies", &rats), PPS_DECODER_OK);
    EXPECT_EQ(rats, 18);
    ASSERT_EQ(pps_decoder_pop(&dec), PPS_DECODER_OK);

    // Walk the array until the type says there is no further element; a
    // number among strings fails as a string but the walk moves on.
    ASSERT_EQ(pps_decoder_push(&dec, "ip_addresses"), PPS_DECODER_OK);
    EXPECT_STREQ(pps_decoder_name(&dec), "ip_addresses");
    std::vector<std::string> seen;
    int guard = 0;
    while (pps_decoder_type(&dec, nullptr) != PPS_TYPE_NONE && ++guard < 10) {
        const char* s = nullptr;
        if (pps_decoder_get_string(&dec, nullptr, &s) == PPS_DECODER_OK) seen.push_back(s);
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"10.0.0.2/24", "fe80::1/64"}));
    EXPECT_EQ(pps_decoder_pop(&dec), PPS_DECODER_OK);
}

TEST(PpsDecoder, AttributesBeforeAnyObjectLineFormAnUnnamedObject) {
    Decoded dec("msg::radiostats\nid::17\n");
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_name(&dec), nullptr);
    const char* id = nullptr;
    EXPECT_EQ(pps_decoder_get_string(&dec, "id", &id), PPS_DECODER_OK);
    EXPECT_STREQ(id, "17");
}

TEST(PpsDecoder, GroupsOfOneObjectMergeLaterValuesWinning) {
    Decoded dec("@config\na::1\nb::x\n@other\nc::2\n@config\na::2\n-b\n");
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    EXPECT_STREQ(pps_decoder_name(&dec), "config");
    const char* a = nullptr;
    EXPECT_EQ(pps_decoder_get_string(&dec, "a", &a), PPS_DECODER_OK);
    EXPECT_STREQ(a, "2");
    EXPECT_EQ(pps_decoder_type(&dec, "b"), PPS_TYPE_DELETED);
    ASSERT_EQ(pps_decoder_pop(&dec), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);  // the next object
    EXPECT_STREQ(pps_decoder_name(&dec), "other");
    ASSERT_EQ(pps_decoder_pop(&dec), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_pop(&dec), PPS_DECODER_POP_AT_ROOT);
    EXPECT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_NOT_FOUND);
}

TEST(PpsDecoder, NumbersConvertOnlyInRange) {
    Decoded dec("@o\nbig:n:3000000000\nhuge:n:99999999999999999999\nhalf:n:2.5\nwhole:n:4e3\n");
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    int i = 0;
    int64_t l = 0;
    double d = 0;
    EXPECT_EQ(pps_decoder_get_int(&dec, "big", &i), PPS_DECODER_CONVERSION_FAILED);
    EXPECT_EQ(pps_decoder_get_int64(&dec, "big", &l), PPS_DECODER_OK);
    EXPECT_EQ(l, 3000000000);
    EXPECT_EQ(pps_decoder_get_int64(&dec, "huge", &l), PPS_DECODER_CONVERSION_FAILED);
    EXPECT_EQ(pps_decoder_get_double(&dec, "huge", &d), PPS_DECODER_OK);
    EXPECT_EQ(d, 1e20);
    EXPECT_EQ(pps_decoder_get_int(&dec, "half", &i), PPS_DECODER_CONVERSION_FAILED);
    EXPECT_EQ(pps_decoder_get_int(&dec, "whole", &i), PPS_DECODER_OK);
    EXPECT_EQ(i, 4000);
}

TEST(PpsDecoder, JsonMessage) {
    char text[] = "{\"msg\":\"x\",\"dat\":{\"n\":-5}}";
    pps_decoder_t dec;
    ASSERT_EQ(pps_decoder_initialize(&dec, nullptr), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_parse_json_str(&dec, text), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, "dat"), PPS_DECODER_OK);
    int n = 0;
    EXPECT_EQ(pps_decoder_get_int(&dec, "n", &n), PPS_DECODER_OK);
    EXPECT_EQ(n, -5);
    pps_decoder_cleanup(&dec);
}

TEST(PpsDecoder, InitializeWithTextParsesIt) {
    char text[] = "@o\na::b\n";
    pps_decoder_t dec;
    ASSERT_EQ(pps_decoder_initialize(&dec, text), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    pps_decoder_cleanup(&dec);
}

TEST(PpsDecoder, CallsBeforeParseOrInitialiseFailWithoutCrash) {
    pps_decoder_t dec;
    const char* s = nullptr;
    EXPECT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_BAD_STATE);
    EXPECT_EQ(pps_decoder_get_string(&dec, "a", &s), PPS_DECODER_BAD_STATE);
    EXPECT_EQ(pps_decoder_parse_pps_str(&dec, nullptr), PPS_DECODER_BAD_STATE);
    EXPECT_EQ(pps_decoder_type(&dec, nullptr), PPS_TYPE_NONE);
    ASSERT_EQ(pps_decoder_initialize(&dec, nullptr), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_pop(&dec), PPS_DECODER_BAD_STATE);
    EXPECT_EQ(pps_decoder_name(&dec), nullptr);
    EXPECT_EQ(pps_decoder_parse_pps_str(&dec, nullptr), PPS_DECODER_PARSE_ERROR);
    pps_decoder_cleanup(&dec);
    pps_decoder_cleanup(&dec);
}

// Malformed text: rejected with an error, nothing to walk afterwards.
TEST(PpsDecoder, MalformedTextIsRejected) {
    const std::pair<const char*, std::string> cases[] = {
        {"empty_text", ""},
        {"only_newlines", "\n\n"},
        {"line_without_colon", "@o\njusttext\n"},
        {"line_with_one_colon", "@o\nname:value\n"},
        {"bad_json", "@o\ndat:json:{\"a\":\n"},
        {"json_trailing_garbage", "@o\ndat:json:{} x\n"},
        {"json_nested_too_deep",
         "@o\ndat:json:" + std::string(200, '[') + std::string(200, ']') + "\n"},
        {"json_number_overflow", "@o\ndat:json:[1e999]\n"},
        {"number_not_a_number", "@o\nn:n:12abc\n"},
        {"number_empty", "@o\nn:n:\n"},
        {"number_overflow", "@o\nn:n:1e999\n"},
        {"number_infinity", "@o\nn:n:inf\n"},
        {"bool_not_true_or_false", "@o\nb:b:yes\n"},
        {"c_escape_unknown", "@o\ns:c:a\\qb\n"},
        {"c_escape_at_end", "@o\ns:c:a\\\n"},
        {"embedded_nul_cuts_line", std::string("@o\nmsg:\0:x\n", 11)},
        {"object_line_without_name", "@\na::b\n"},
        {"attribute_after_object_deleted", "-@o\na::b\n"}};
    for (const auto& [name, text] : cases) {
        Decoded dec(text);
        EXPECT_EQ(dec.status(), PPS_DECODER_PARSE_ERROR) << name;
        EXPECT_NE(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK) << name;
    }
}

// Round trips: what the encoder writes, the decoder reads back unchanged.
std::string EncodeOne(void (*add)(pps_encoder_t*)) {
    pps_encoder_t enc;
    EXPECT_EQ(pps_encoder_initialize(&enc, false), PPS_ENCODER_OK);
    EXPECT_EQ(pps_encoder_start_object(&enc, "obj"), PPS_ENCODER_OK);
    add(&enc);
    const char* buf = pps_encoder_buffer(&enc);
    std::string text = buf != nullptr ? buf : "";
    pps_encoder_cleanup(&enc);
    return text;
}

class PpsRoundTripString : public ::testing::TestWithParam<const char*> {};

TEST_P(PpsRoundTripString, SameText) {
    static const char* value;
    value = GetParam();
    Decoded dec(EncodeOne([](pps_encoder_t* e) {
        EXPECT_EQ(pps_encoder_add_string(e, "s", value), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_start_array(e, "arr"), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_string(e, nullptr, value), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_end_array(e), PPS_ENCODER_OK);
    }));
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    const char* got = nullptr;
    ASSERT_EQ(pps_decoder_get_string(&dec, "s", &got), PPS_DECODER_OK);
    EXPECT_STREQ(got, value);
    ASSERT_EQ(pps_decoder_push(&dec, "arr"), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_get_string(&dec, nullptr, &got), PPS_DECODER_OK);
    EXPECT_STREQ(got, value);
    EXPECT_EQ(pps_decoder_type(&dec, nullptr), PPS_TYPE_NONE);
}

INSTANTIATE_TEST_SUITE_P(Strings, PpsRoundTripString,
                         ::testing::Values("", "plain", "a:b:c", "two\nlines", "\n", "back\\slash",
                                           "back\\slash\nand newline", "quote\"s", "tab\there",
                                           "No data available!", "\xc3\xa9t\xc3\xa9"));

class PpsRoundTripDouble : public ::testing::TestWithParam<double> {};

TEST_P(PpsRoundTripDouble, SameBits) {
    static double value;
    value = GetParam();
    Decoded dec(EncodeOne([](pps_encoder_t* e) {
        EXPECT_EQ(pps_encoder_add_double(e, "d", value), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_start_object(e, "j"), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_double(e, "d", value), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_end_object(e), PPS_ENCODER_OK);
    }));
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    double got = 1;
    ASSERT_EQ(pps_decoder_get_double(&dec, "d", &got), PPS_DECODER_OK);
    EXPECT_EQ(std::memcmp(&got, &value, sizeof got), 0) << got;
    ASSERT_EQ(pps_decoder_push(&dec, "j"), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_get_double(&dec, "d", &got), PPS_DECODER_OK);
    EXPECT_EQ(std::memcmp(&got, &value, sizeof got), 0) << got;
}

INSTANTIATE_TEST_SUITE_P(Doubles, PpsRoundTripDouble,
                         ::testing::Values(0.1, 1e300, -0.0, 0.0, 5e-324, -2.5, 1.0 / 3,
                                           std::numeric_limits<double>::max(),
                                           std::numeric_limits<double>::min(), 123456789.0));

TEST(PpsRoundTrip, IntsBoolsNullAndJson) {
    Decoded dec(EncodeOne([](pps_encoder_t* e) {
        EXPECT_EQ(pps_encoder_add_int(e, "min", std::numeric_limits<int32_t>::min()),
                  PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_int(e, "max", std::numeric_limits<int32_t>::max()),
                  PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_int64(e, "l", std::numeric_limits<int64_t>::min()),
                  PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_bool(e, "t", true), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_bool(e, "f", false), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_null(e, "z"), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_add_json(e, "j", "{\"a\":[1,{\"b\":\"c\"}]}"), PPS_ENCODER_OK);
        EXPECT_EQ(pps_encoder_delete_attribute(e, "gone"), PPS_ENCODER_OK);
    }));
    ASSERT_EQ(dec.status(), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    EXPECT_STREQ(pps_decoder_name(&dec), "obj");
    int i = 0;
    int64_t l = 0;
    bool b = false;
    EXPECT_EQ(pps_decoder_get_int(&dec, "min", &i), PPS_DECODER_OK);
    EXPECT_EQ(i, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(pps_decoder_get_int(&dec, "max", &i), PPS_DECODER_OK);
    EXPECT_EQ(i, std::numeric_limits<int32_t>::max());
    EXPECT_EQ(pps_decoder_get_int64(&dec, "l", &l), PPS_DECODER_OK);
    EXPECT_EQ(l, std::numeric_limits<int64_t>::min());
    EXPECT_EQ(pps_decoder_get_bool(&dec, "t", &b), PPS_DECODER_OK);
    EXPECT_TRUE(b);
    EXPECT_EQ(pps_decoder_get_bool(&dec, "f", &b), PPS_DECODER_OK);
    EXPECT_FALSE(b);
    EXPECT_EQ(pps_decoder_type(&dec, "z"), PPS_TYPE_NULL);
    EXPECT_EQ(pps_decoder_type(&dec, "gone"), PPS_TYPE_DELETED);
    ASSERT_EQ(pps_decoder_push(&dec, "j"), PPS_DECODER_OK);
    ASSERT_EQ(pps_decoder_push(&dec, "a"), PPS_DECODER_OK);
    EXPECT_EQ(pps_decoder_get_int(&dec, nullptr, &i), PPS_DECODER_OK);
    EXPECT_EQ(i, 1);
    ASSERT_EQ(pps_decoder_push(&dec, nullptr), PPS_DECODER_OK);
    const char* s = nullptr;
    EXPECT_EQ(pps_decoder_get_string(&dec, "b", &s), PPS_DECODER_OK);
    EXPECT_STREQ(s, "c");
}

}  // namespace
