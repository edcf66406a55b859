#include "platform/pps/pps_encoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

namespace {

using Calls = std::function<void(pps_encoder_t*)>;

// Runs the calls on a fresh encoder, checking each returns 0, and returns the text.
std::string Encode(const Calls& calls, bool encode_json = false) {
    pps_encoder_t enc;
    EXPECT_EQ(pps_encoder_initialize(&enc, encode_json), PPS_ENCODER_OK);
    calls(&enc);
    const char* buf = pps_encoder_buffer(&enc);
    std::string text = buf != nullptr ? std::string(buf, pps_encoder_length(&enc)) : "<null>";
    pps_encoder_cleanup(&enc);
    return text;
}

#define OK(call) EXPECT_EQ((call), PPS_ENCODER_OK)

struct ExactCase {
    const char* name;
    Calls calls;
    const char* expected;
};

// The exact text of each sequence of calls. The server's replies are
// PPSLoopTest's.
TEST(PpsEncoder, RendersText) {
    const ExactCase cases[] = {
        {"reply_object_end_accepted_once",
         [](pps_encoder_t* e) {
             OK(pps_encoder_start_object(e, "o.1"));
             OK(pps_encoder_add_string(e, "res", "x"));
             OK(pps_encoder_end_object(e));
         },
         "@o.1\nres::x\n"},
        // A report's array of objects becomes one JSON attribute.
        {"report_array_of_objects",
         [](pps_encoder_t* e) {
             OK(pps_encoder_add_string(e, "rrc_state", "CELL_DCH"));
             OK(pps_encoder_start_array(e, "dch_bler"));
             for (int k = 0; k < 2; ++k) {
                 OK(pps_encoder_start_object(e, nullptr));
                 OK(pps_encoder_add_int(e, ("bler" + std::to_string(k)).c_str(), 10 + k));
                 OK(pps_encoder_add_string(e, ("tr" + std::to_string(k)).c_str(), "a\"b"));
                 OK(pps_encoder_end_object(e));
             }
             OK(pps_encoder_end_array(e));
             OK(pps_encoder_add_int(e, "after", 1));
         },
         "rrc_state::CELL_DCH\n"
         "dch_bler:json:[{\"bler0\":10,\"tr0\":\"a\\\"b\"},{\"bler1\":11,\"tr1\":\"a\\\"b\"}]\n"
         "after:n:1\n"},
        {"empty_array",
         [](pps_encoder_t* e) {
             OK(pps_encoder_start_array(e, "dch_bler"));
             OK(pps_encoder_end_array(e));
         },
         "dch_bler:json:[]\n"},
        // A request with a JSON dat object.
        {"request_with_dat_object",
         [](pps_encoder_t* e) {
             OK(pps_encoder_add_string(e, "msg", "configure_rats"));
             OK(pps_encoder_add_string(e, "id", "3323"));
             OK(pps_encoder_start_object(e, "dat"));
             OK(pps_encoder_add_int(e, "enabled_technologies", 18));
             OK(pps_encoder_end_object(e));
         },
         "msg::configure_rats\nid::3323\ndat:json:{\"enabled_technologies\":18}\n"},
        {"nested_json_keeps_member_order",
         [](pps_encoder_t* e) {
             OK(pps_encoder_add_string(e, "m", "x"));  // so "dat" is no object line
             OK(pps_encoder_start_object(e, "dat"));
             OK(pps_encoder_start_object(e, "inner"));
             OK(pps_encoder_end_object(e));
             OK(pps_encoder_add_int(e, "z", 1));
             OK(pps_encoder_start_array(e, "list"));
             OK(pps_encoder_add_string(e, nullptr, "s"));
             OK(pps_encoder_add_bool(e, nullptr, false));
             OK(pps_encoder_add_double(e, nullptr, 0.5));
             OK(pps_encoder_add_null(e, nullptr));
             OK(pps_encoder_add_json(e, nullptr, "{\"k\":[1,2]}"));
             OK(pps_encoder_end_array(e));
             OK(pps_encoder_add_string(e, "a", "line1\nline2"));
             OK(pps_encoder_end_object(e));
         },
         "m::x\ndat:json:{\"inner\":{},\"z\":1,\"list\":[\"s\",false,0.5,null,{\"k\":[1,2]}],"
         "\"a\":\"line1\\nline2\"}\n"},
        {"deletion", [](pps_encoder_t* e) { OK(pps_encoder_delete_attribute(e, "ens_value")); },
         "-ens_value\n"},
        {"scalars",
         [](pps_encoder_t* e) {
             OK(pps_encoder_add_int(e, "i", -2147483647 - 1));
             OK(pps_encoder_add_int64(e, "l", std::numeric_limits<int64_t>::max()));
             OK(pps_encoder_add_double(e, "d", 0.1));
             OK(pps_encoder_add_double(e, "big", 1e300));
             OK(pps_encoder_add_double(e, "nz", -0.0));
             OK(pps_encoder_add_double(e, "tiny", 5e-324));
             OK(pps_encoder_add_bool(e, "t", true));
             OK(pps_encoder_add_bool(e, "f", false));
             OK(pps_encoder_add_null(e, "nothing"));
             OK(pps_encoder_add_string(e, "empty", ""));
             OK(pps_encoder_add_string(e, "colon", "12:30:00"));
         },
         "i:n:-2147483648\nl:n:9223372036854775807\nd:n:0.1\nbig:n:1e+300\nnz:n:-0\n"
         "tiny:n:5e-324\nt:b:true\nf:b:false\nnothing:json:null\nempty::\n"
         "colon::12:30:00\n"},
        // A newline cannot stand in a line: the "c" encoding escapes it.
        {"multiline_string_c_encoded",
         [](pps_encoder_t* e) { OK(pps_encoder_add_string(e, "s", "a\\b\nc")); },
         "s:c:a\\\\b\\nc\n"},
        {"backslash_without_newline_stays_plain",
         [](pps_encoder_t* e) { OK(pps_encoder_add_string(e, "s", "a\\b")); }, "s::a\\b\n"},
        {"multiline_json_text_compacted",
         [](pps_encoder_t* e) { OK(pps_encoder_add_json(e, "j", "{\n \"a\": [1,\n2]\n}")); },
         "j:json:{\"a\":[1,2]}\n"},
        {"nothing_added", [](pps_encoder_t*) {}, ""},
    };
    for (const ExactCase& c : cases) EXPECT_EQ(Encode(c.calls), c.expected) << c.name;
}

TEST(PpsEncoder, NoBufferWhileNestedOpen) {
    pps_encoder_t enc;
    ASSERT_EQ(pps_encoder_initialize(&enc, false), PPS_ENCODER_OK);
    OK(pps_encoder_start_array(&enc, "a"));
    OK(pps_encoder_start_object(&enc, nullptr));
    EXPECT_EQ(pps_encoder_buffer(&enc), nullptr);
    EXPECT_EQ(pps_encoder_length(&enc), 0);
    OK(pps_encoder_end_object(&enc));
    EXPECT_EQ(pps_encoder_buffer(&enc), nullptr);
    OK(pps_encoder_end_array(&enc));
    EXPECT_STREQ(pps_encoder_buffer(&enc), "a:json:[{}]\n");
    EXPECT_EQ(pps_encoder_length(&enc), 12);
    pps_encoder_cleanup(&enc);
    EXPECT_EQ(enc.impl, nullptr);
}

TEST(PpsEncoder, ResetStartsAFreshMessage) {
    pps_encoder_t enc;
    ASSERT_EQ(pps_encoder_initialize(&enc, false), PPS_ENCODER_OK);
    OK(pps_encoder_add_string(&enc, "a", "1"));
    pps_encoder_reset(&enc);
    OK(pps_encoder_start_object(&enc, "obj"));  // first call again: an object line
    EXPECT_STREQ(pps_encoder_buffer(&enc), "@obj\n");
    pps_encoder_cleanup(&enc);
}

TEST(PpsEncoder, JsonModeEncodesOneJsonObject) {
    EXPECT_EQ(Encode(
                  [](pps_encoder_t* e) {
                      OK(pps_encoder_add_string(e, "msg", "x"));
                      OK(pps_encoder_start_object(e, "dat"));
                      OK(pps_encoder_add_int(e, "n", 1));
                      OK(pps_encoder_end_object(e));
                  },
                  true),
              "{\"msg\":\"x\",\"dat\":{\"n\":1}}");
}

// Misuse: the call fails with its error and the encoder yields no buffer.
struct MisuseCase {
    const char* name;
    std::function<int(pps_encoder_t*)> call;
    int error;
};

TEST(PpsEncoder, MisuseFailsAndYieldsNoBuffer) {
    using E = pps_encoder_t*;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const MisuseCase cases[] = {
        {"end_object_without_start", [](E e) { return pps_encoder_end_object(e); },
         PPS_ENCODER_BAD_NESTING},
        {"end_array_closing_object",
         [](E e) {
             pps_encoder_start_object(e, "o");
             return pps_encoder_end_array(e);
         },
         PPS_ENCODER_BAD_NESTING},
        {"member_without_name",
         [](E e) {
             pps_encoder_start_object(e, "o");
             return pps_encoder_add_int(e, nullptr, 1);
         },
         PPS_ENCODER_BAD_NESTING},
        {"top_level_without_name", [](E e) { return pps_encoder_add_string(e, nullptr, "x"); },
         PPS_ENCODER_BAD_NESTING},
        {"name_with_colon", [](E e) { return pps_encoder_add_string(e, "a:b", "x"); },
         PPS_ENCODER_BAD_NESTING},
        {"name_with_newline", [](E e) { return pps_encoder_add_int(e, "a\nb", 1); },
         PPS_ENCODER_BAD_NESTING},
        {"deletion_inside_object",
         [](E e) {
             pps_encoder_start_object(e, "o");
             return pps_encoder_delete_attribute(e, "x");
         },
         PPS_ENCODER_BAD_NESTING},
        {"nan_double", [&](E e) { return pps_encoder_add_double(e, "d", nan); },
         PPS_ENCODER_INVALID_VALUE},
        {"infinite_double", [&](E e) { return pps_encoder_add_double(e, "d", inf); },
         PPS_ENCODER_INVALID_VALUE},
        {"json_that_does_not_parse", [](E e) { return pps_encoder_add_json(e, "j", "{\"a\":"); },
         PPS_ENCODER_INVALID_VALUE},
        {"null_json", [](E e) { return pps_encoder_add_json(e, "j", nullptr); },
         PPS_ENCODER_INVALID_VALUE},
        {"object_left_open", [](E e) { return pps_encoder_start_object(e, "dat"); },
         PPS_ENCODER_OK},
    };
    for (const MisuseCase& c : cases) {
        pps_encoder_t enc;
        ASSERT_EQ(pps_encoder_initialize(&enc, false), PPS_ENCODER_OK);
        OK(pps_encoder_add_string(&enc, "before", "x"));
        EXPECT_EQ(c.call(&enc), c.error) << c.name;
        EXPECT_EQ(pps_encoder_buffer(&enc), nullptr) << c.name;
        pps_encoder_cleanup(&enc);
    }
}

TEST(PpsEncoder, UninitialisedEncoderFailsWithoutCrash) {
    pps_encoder_t enc;
    EXPECT_NE(pps_encoder_add_string(&enc, "a", "b"), PPS_ENCODER_OK);
    EXPECT_NE(pps_encoder_start_object(&enc, "a"), PPS_ENCODER_OK);
    EXPECT_NE(pps_encoder_end_array(&enc), PPS_ENCODER_OK);
    EXPECT_EQ(pps_encoder_buffer(&enc), nullptr);
    EXPECT_EQ(pps_encoder_length(&enc), 0);
    pps_encoder_cleanup(&enc);
    pps_encoder_cleanup(nullptr);
}

}  // namespace
